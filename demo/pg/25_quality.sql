\echo
\echo '== Text quality (1 = reads like French prose, 0 = no letters or no known letter pair)'
select lastname,
       round(freqquality(notes, '', 0)::numeric, 3)   as letters,
       round(digramquality(notes, '', 1)::numeric, 3) as pairs_caseless,
       round(textquality(notes, '', 0)::numeric, 3)   as quality
from customers;

select t as text,
       round(freqquality(t, '', 0)::numeric, 3)   as letters,
       round(digramquality(t, '', 0)::numeric, 3) as pairs,
       round(textquality(t, '', 1)::numeric, 3)   as caseless
from (values ('Le petit chat est sur le toit de la maison'),
             ('The quick brown fox jumps over the lazy dog'),
             ('xq zvkw qjxz pfft'),
             ('4111 1111 1111 1111')) v(t);
