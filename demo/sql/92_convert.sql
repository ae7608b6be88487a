.print
.print '== Value conversions (cvt): every SQL type into every other, nulls in band'
.mode box
select firstname,
       birth,
       cvt(birth, 'date')                          as birth_day_number,
       cvt(cvt(birth, 'date'), 'datetime')         as midnight_seconds,
       cvt(balance, 'decimal(8,1)')                as balance_8_1,
       cvt(balance, 'integer')                     as balance_int,
       cvt(asdate(since), 'char')                  as customer_since
from customers;

.print '-- text rules: blanks skipped, tail ignored, no number gives NULL; the error flag'
select cvt('  42abc', 'integer') as "'  42abc'", cvt('abc', 'integer') as "'abc'",
       cvt(2.99995, 'integer') as "2.99995", cvt(40000, 'smallint') as "40000 smallint",
       cvt(1e42, 'vchar') as "1e42",
       cvt(asdatetime(1608903900), 'char') as "datetime",
       cvt('31/02/2020', 'date') as "'31/02/2020'", cvterror() as error_flag;
