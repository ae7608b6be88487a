-- The fuzzy settings are configuration variables: the setters set them, SET
-- works too, and they follow the transaction.
\pset null '<null>'
-- (they exist once the module is loaded: by LOAD, a first call, or
-- session_preload_libraries)
load 'udfkit';
select current_setting('udfkit.phonex') as phonex, current_setting('udfkit.isocode') as isocode,
       current_setting('udfkit.span_close') as span_close;
select fuzzysetspans('[', ']');
select current_setting('udfkit.span_open') as span_open, current_setting('udfkit.span_close') as span_close,
       fuzzyhighlight('dupont', 'M. Dupond') as highlight;
set udfkit.span_open = '<b title="%.2f">';
set udfkit.span_close = '</b>';
select fuzzyhighlight('dupont', 'M. Dupond') as after_set;
begin;
select fuzzysetspans('{', '}');
select fuzzyhighlight('dupont', 'M. Dupond') as in_transaction;
rollback;
select fuzzyhighlight('dupont', 'M. Dupond') as after_rollback;
reset udfkit.span_open;
reset udfkit.span_close;
select fuzzyhighlight('dupont', 'M. Dupond') as defaults;
-- The phonetic setting applies from the next call on, also to a pattern
-- searched before.
select fuzzysearch('dupond', 'dupont') as phonetic;
select fuzzysetphonex(0);
select current_setting('udfkit.phonex') as phonex, fuzzysearch('dupond', 'dupont') as letters;
reset udfkit.phonex;
select fuzzysearch('dupond', 'dupont') as phonetic_again;
select fuzzysetisocode('ISO-8859-1');
select current_setting('udfkit.isocode') as isocode;
-- A pattern compiled for one character set is not reused for another.
\c
select fuzzysearch('lefèvre', 'LEFEVRE', 'ISO-8859-1') as latin1_fresh;
\c
select fuzzysearch('lefèvre', 'LEFEVRE') as utf8,
       fuzzysearch('lefèvre', 'LEFEVRE', 'ISO-8859-1') as latin1_after_utf8;
