\echo
\echo '== Value conversions (cvt): the engine''s conversions, nulls in band, results as text'
select firstname,
       birth,
       cvt(birth, 'date')                          as birth_date,
       cvt(todate(birth), 'datetime')              as midnight,
       cvt(balance, 'decimal(8,1)')                as balance_8_1,
       cvt(balance, 'integer')                     as balance_int,
       cvt(date '1809-12-31' + since, 'char')      as customer_since
from customers;

\echo '-- text rules: blanks skipped, tail ignored, no number gives NULL; the error flag'
select cvt('  42abc', 'integer') as "'  42abc'", cvt('abc', 'integer') as "'abc'",
       cvt(2.99995::float8, 'integer') as "2.99995", cvt(40000, 'smallint') as "40000 smallint",
       cvt(1e42::float8, 'vchar') as "1e42",
       cvt(to_timestamp(1608903900), 'char') as "datetime",
       cvt('31/02/2020', 'date') as "'31/02/2020'", cvterror() as error_flag;
