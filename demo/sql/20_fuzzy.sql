.print
.print '== Fuzzy search: customers ranked by a misspelt name (dupond), and by a phrase'
.mode box
select firstname || ' ' || lastname                                  as customer,
       round(fuzzysearch('dupond', firstname || ' ' || lastname), 3) as dupond,
       round(fuzzysearch('jean +dupont', firstname || ' ' || lastname), 3) as jean_dupont,
       round(fuzzysearch('''rue de la paix''', street), 3)            as rue_de_la_paix
from customers
order by dupond desc;

.print '-- notes highlighted and excerpted (markers set with fuzzysetspans)'
.output /dev/null
select fuzzysetspans('[', ']');
.output stdout
select lastname,
       fuzzyhighlight('dupont paix', notes)   as highlight,
       fuzzyexcerpt('dupont paix', notes, 2, 30) as excerpt
from customers
where fuzzysearch('dupont paix', notes) > 0.5;

.output /dev/null
select fuzzysetspans('<%.2f:', '>');
.output stdout
select fuzzyhighlight('livraison retard', notes, 0.5) as scored_highlight
from customers where id = 3;

.print '-- word normalisation (capital accented letters other than É vanish) and conversion'
select lastname,
       round(fuzzysearch('lefevre', lastname), 3)          as lefevre,
       hex(convert(lastname, 'UTF-8', 'ISO-8859-1'))       as latin1_bytes,
       convert(lastname, 'NO-SUCH-CHARSET', 'UTF-8')       as unknown_charset
from customers where id in (2, 4);
