\echo
\echo '== Searching names: the customers closest to a misspelt name (fransoi martain)'
select firstname || ' ' || lastname                                                 as customer,
       round(fuzzyrank('fransoi martain', firstname || ' ' || lastname)::numeric, 3) as rank
from customers
order by rank desc
limit 5;
