\echo
\echo '== Fuzzy search: customers ranked by a misspelt name (dupond), and by a phrase'
select firstname || ' ' || lastname                                           as customer,
       round(fuzzysearch('dupond', firstname || ' ' || lastname)::numeric, 3) as dupond,
       round(fuzzysearch('jean +dupont', firstname || ' ' || lastname)::numeric, 3) as jean_dupont,
       round(fuzzysearch('''rue de la paix''', street)::numeric, 3)            as rue_de_la_paix
from customers
order by dupond desc;

\echo '-- notes highlighted and excerpted (markers set with fuzzysetspans, or SET udfkit.span_open)'
\o /dev/null
select fuzzysetspans('[', ']');
\o
select lastname,
       fuzzyhighlight('dupont paix', notes)      as highlight,
       fuzzyexcerpt('dupont paix', notes, 2, 30) as excerpt
from customers
where fuzzysearch('dupont paix', notes) > 0.5;

set udfkit.span_open = '<%.2f:';
set udfkit.span_close = '>';
select fuzzyhighlight('livraison retard', notes, 0.5) as scored_highlight
from customers where id = 3;

\echo '-- word normalisation (capital accented letters other than É vanish) and conversion (bytea)'
select lastname,
       round(fuzzysearch('lefevre', lastname)::numeric, 3)            as lefevre,
       upper(encode(convert(lastname, 'UTF-8', 'ISO-8859-1'), 'hex')) as latin1_bytes,
       convert_from(convert(lastname, 'NO-SUCH-CHARSET', 'UTF-8'), 'UTF8') as unknown_charset
from customers where id in (2, 4);
