\echo
\echo '== Dates and datetimes (settings DBDATE, DBDATETIME from the server''s environment)'
select datesettings()                            as "DBDATE DBDATETIME",
       datetext(today())                         as today,
       datetext(todate('1/1/51'))                as two_digit_year,
       coalesce(todate('29/02/2021')::text, 'NULL') as bad_date;

\echo '-- customers: birth text parsed under DBDATE, printed back, ages from today'
with c as (select firstname, todate(birth) as born, date '1809-12-31' + since as since from customers)
select firstname,
       born,
       datetext(born)                          as birth,
       format(born, 'ddd dd mmm yyyy')         as spelt,
       extract(year from age(today(), born))   as age,
       datetext(since)                         as customer_since,
       today() - since                         as days_as_customer
from c;

\echo '-- datetimes: the server''s local time, date part under DBDATETIME'
select todatetime('25/12/2020 13:45')               as timestamptz,
       datetimetext(todatetime('25/12/2020 13:45')) as text,
       datetimetext(todatetime('25.12.2020'))       as midnight,
       coalesce(todatetime('25/12/2020 24:00')::text, 'NULL') as bad_hour;
