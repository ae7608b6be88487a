.print
.print '== Anonymisation: an anonymised copy of the customers table'
.mode box
create table customers_anon as
select id, civ,
       anonymize_first(firstname, case civ when 'M' then 0 else 1 end) as firstname,
       anonymize_last(lastname)                                        as lastname,
       anonymize_letter(street, 'abcdefghijklmnopqrstuvwxyz')          as street,
       anonymize_nss(substr(replace(nss, ' ', ''), 1, 13), '')         as nss,
       anonymize_email(email)                                          as email
from customers;
select * from customers_anon order by id;

.print '-- equal inputs give equal outputs in any row (rows 1 and 3); sex 2 is guessed from the feminine names'
with people(firstname, lastname, nss, email) as (values
    ('marie', 'Martin', '2910369387002', 'marie.martin@example.fr'),
    ('jean',  'Martin', '1841275123456', 'jean.martin@example.fr'),
    ('marie', 'Martin', '2910369387002', 'marie.martin@example.fr'),
    ('marie', 'Martin', '2910369387002', 'marie.martin@example.org'))
select firstname, anonymize_first(firstname, 2) as guessed_sex,
       anonymize_last(lastname)                 as lastname,
       anonymize_nss(nss, '')                   as nss,
       anonymize_nss(nss, '78')                 as nss_key_78,
       anonymize_email(email)                   as email
from people;
