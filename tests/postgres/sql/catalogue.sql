-- Catalogue lookups: the library's statements run through SPI on the
-- calling session, in a subtransaction; a statement that fails gives the
-- function's fallback, never an error.
\pset null '<null>'
select coltype2string(100, 0) as no_systypes, colattribute(1, 7, 'label') as no_syscolattr,
       colattributes(1, 7) as no_syscolattr_either;
create table systypes (typeid integer, typename text);
create table syscolattr (tabid integer, colno integer, attrkey text, attrvalue text);
insert into systypes values (100, 'email_address'), (101, 'json_document');
insert into syscolattr values
  (1, 7, 'label', 'E-mail'), (1, 7, 'label', 'Courriel'), (1, 11, 'label', 'Balance'),
  (1, 11, 'unit', 'EUR'), (1, 11, 'it''s', 'quoted'), (1, 12, 'empty', null);
select coltype2string(5, 1282) as decimal, coltype2string(100, 0) as user_type,
       coltype2string(102, 0) as unknown_type, coltype2string(0 + 16384, 30) as not_null,
       coltype2null(16386) as nullable_no, coltype2null(2) as nullable_yes;
select colattribute(1, 7, 'label') as two_values, colattribute(1, 11, 'it''s') as quoted_key,
       colattribute(1, 11, ''' or ''1''=''1') as injection, colattribute(1, 12, 'empty') as null_value,
       colattributes(1, 11) as all_of_11;
-- The lookups see the caller's transaction.
begin;
insert into syscolattr values (1, 7, 'pii', 'yes');
select colattributes(1, 7) as inside;
rollback;
select colattributes(1, 7) as after_rollback;
-- A catalogue view that calls the lookup again: the nesting is bounded.
drop table syscolattr;
create view syscolattr as
  select 1 as tabid, 7 as colno, 'label'::text as attrkey, colattribute(1, 7, 'label') as attrvalue;
select colattribute(1, 7, 'label') as recursive_view;
-- A view that fails: the fallback, and the transaction goes on.
drop view syscolattr;
create view syscolattr as
  select 1 as tabid, 7 as colno, 'label'::text as attrkey, (1 / 0)::text as attrvalue;
begin;
select colattribute(1, 7, 'label') as failing_view;
select 'still in the transaction' as state;
commit;
-- A lookup cancelled by a timeout ends the statement: the cancel is not
-- taken for a failed lookup.
drop view syscolattr;
create view syscolattr as
  select 1 as tabid, 7 as colno, 'label'::text as attrkey, pg_sleep(5)::text as attrvalue;
set statement_timeout = '300ms';
select colattribute(1, 7, 'label') as cancelled;
reset statement_timeout;
drop view syscolattr;
drop table systypes;
