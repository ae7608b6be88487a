\echo
\echo '== Catalogue introspection (systypes, syscolattr and a column list describe the customers table)'
create table systypes (typeid integer, typename text);
create table syscolattr (tabid integer, colno integer, attrkey text, attrvalue text);
create table syscolumns (tabid integer, colno integer, colname text, coltype integer, collength integer);
insert into systypes values (100, 'email_address'), (101, 'json_document');
-- type codes: 0 char, 2 integer, 5 decimal, 7 date, 9 vchar; 16384 marks NOT NULL
insert into syscolumns values
  (1, 1, 'id', 2 + 16384, 4), (1, 2, 'civ', 0 + 16384, 1), (1, 3, 'firstname', 9, 40),
  (1, 4, 'lastname', 9 + 16384, 60), (1, 7, 'email', 100, 0), (1, 9, 'birth', 7, 4),
  (1, 11, 'balance', 5 + 16384, 12 * 256 + 2), (1, 12, 'notes', 9, 0), (1, 13, 'profile', 101, 0);
insert into syscolattr values
  (1, 3, 'label', 'First name'), (1, 3, 'pii', 'yes'), (1, 4, 'label', 'Surname'), (1, 4, 'pii', 'yes'),
  (1, 7, 'label', 'E-mail'), (1, 7, 'pii', 'yes'), (1, 7, 'check', 'like ''%@%'''),
  (1, 11, 'label', 'Balance'), (1, 11, 'unit', 'EUR'), (1, 13, 'format', 'json');
select colname,
       coltype2string(coltype, collength) as type,
       coltype2null(coltype)              as nullable,
       colattribute(tabid, colno, 'label') as label,
       colattributes(tabid, colno)        as attributes
from syscolumns order by colno;
