\echo
\echo '== Format masks: invoice amounts and customer dates'
select lastname,
       balance,
       format(balance, '$$$,$$$.##')   as dollars,
       format(balance, '(###,###.##)') as accounting,
       format(balance, '-&&&&&&.&&')   as zero_filled,
       format(balance, '&&&&&&')       as whole,
       format(balance, '<<<,<<<.##')   as left
from customers;

select lastname,
       format(date '1809-12-31' + since, 'ddd dd mmm yyyy') as since,
       format(date '1809-12-31' + since, 'dd/mm/yy')        as short,
       format(date '1809-12-31' + since, 'yyyy-mm-dd')      as iso
from customers;
