\echo
\echo '== String functions'
select firstname,
       capitalize(firstname)            as capitalize,
       upper(lastname)                  as upper,
       lower(city)                      as lower,
       lastchars(nss, 5)                as lastchars,
       strpos(email, '@', 1)            as at_sign,
       valascii(lastname)               as code,
       strreplace(street, 'rue', 'RUE') as strreplace
from customers;

select merge(capitalize(firstname), lastname, '', city) as merge,
       concat(lastname, '/', city)                      as concat,
       champ(birth, '/', 3)                             as birth_year,
       basename('/var/customers/' || id || '.pdf')      as basename
from customers;

\echo '-- group_concat (newest row first), typed empty columns, extremes, list matching (LIKE patterns)'
select civ, group_concat(firstname, ',') as names from customers group by civ order by civ;
select minx(3.5, 1.25, 2) as minx, maxx(3.5, 1.25, 2) as maxx,
       pg_typeof(charcolumn(10)) as charcolumn, pg_typeof(datecolumn()) as datecolumn,
       list_matches('paris,lyon,,pau,lille', ',', 'p%') as share_p;
