.print
.print '== Format masks: invoice amounts and customer dates'
select lastname,
       balance,
       format(balance, '$$$,$$$.##')   as dollars,
       format(balance, '(###,###.##)') as accounting,
       format(balance, '-&&&&&&.&&')   as zero_filled,
       format(balance, '&&&&&&')       as whole,
       format(balance, '<<<,<<<.##')   as left
from customers;

select lastname,
       format(asdate(since), 'ddd dd mmm yyyy') as since,
       format(asdate(since), 'dd/mm/yy')        as short,
       format(asdate(since), 'yyyy-mm-dd')      as iso
from customers;
