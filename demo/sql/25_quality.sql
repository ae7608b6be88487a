.print
.print '== Text quality (1 = reads like French prose, 0 = no letters or no known letter pair)'
.mode box
select lastname,
       round(freqquality(notes, '', 0), 3)   as letters,
       round(digramquality(notes, '', 1), 3) as pairs_caseless,
       round(textquality(notes, '', 0), 3)   as quality
from customers;

select t as text,
       round(freqquality(t, '', 0), 3)   as letters,
       round(digramquality(t, '', 0), 3) as pairs,
       round(textquality(t, '', 1), 3)   as caseless
from (select 'Le petit chat est sur le toit de la maison' as t
      union all select 'The quick brown fox jumps over the lazy dog'
      union all select 'xq zvkw qjxz pfft'
      union all select '4111 1111 1111 1111');
