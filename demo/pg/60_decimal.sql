\echo
\echo '== Decimals: PostgreSQL''s numeric meets the library''s packed column form'
create table dec_invoice_lines (invoice integer, item text, qty integer, unit_price numeric);
insert into dec_invoice_lines values
 (1, 'coffee', 10, 0.10), (1, 'croissant', 7, 0.70), (1, 'tip', 1, 0.20),
 (2, 'train ticket', 1, 59.99), (2, 'booking fee', 1, 0.01), (2, 'discount', 1, -0.30),
 (3, 'paper', 10, 0.1), (3, 'ink', 1, 17.45);

\echo '-- rounding half away from zero with a fit check, and fixed-width fields'
select dec_round(2.675, 10, 2)           as round_2675,
       dec_round(123456, 4, 2)           as does_not_fit,
       dec_format(3.14159, 5, 4)         as field_5,
       dec_format(123456789012, 8, 2)    as narrow_field,
       dec_format(sum(qty * unit_price), 10, 2) as total
from dec_invoice_lines;

\echo '-- balances stored packed (9 bytes), ordered by the bytea itself'
create table dec_balances as
    select lastname, dec_pack(balance::numeric, 9) as packed from customers;
select lastname, encode(packed, 'hex') as packed, dec_unpack(packed) as balance
from dec_balances order by packed;
