.print
.print '== Searching names: the customers closest to a misspelt name (fransoi martain)'
.mode box
select firstname || ' ' || lastname                                        as customer,
       round(fuzzyrank('fransoi martain', firstname || ' ' || lastname), 3) as rank
from customers
order by rank desc
limit 5;
