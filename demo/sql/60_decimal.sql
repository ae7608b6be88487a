.print
.print '== Decimals: exact amounts'
create table dec_invoice_lines (invoice integer, item text, qty integer, unit_price text);
insert into dec_invoice_lines values
 (1, 'coffee', 10, '0.10'), (1, 'croissant', 7, '0.70'), (1, 'tip', 1, '0.20'),
 (2, 'train ticket', 1, '59.99'), (2, 'booking fee', 1, '0.01'), (2, 'discount', 1, '-0.30'),
 (3, 'paper', 10, '0.1'), (3, 'ink', 1, '17.45');

.print '-- invoice totals: reals drift, decimals do not'
with recursive lines(invoice, unit_price, n) as (
    select invoice, unit_price, qty from dec_invoice_lines
    union all
    select invoice, unit_price, n - 1 from lines where n > 1
)
select invoice,
       printf('%.17g', sum(cast(unit_price as real))) as float_sum,
       dec_sum(unit_price)                            as exact_sum,
       dec_format(dec_sum(unit_price), 10, 2)         as formatted
from lines group by invoice;

.print '-- rounding, comparison and fixed-width fields'
select dec_round('2.675', 10, 2)               as round_2675,
       dec_add('0.1', '0.2') = '0.3'           as exact_add,
       0.1 + 0.2 = 0.3                         as real_add,
       dec_cmp('-1000', '-1')                  as cmp,
       dec_format('123456789012', 8, 2)        as narrow_field;

.print '-- balances stored packed (9 bytes), ordered by the BLOB itself'
create table dec_balances as
    select lastname, dec_pack(balance, 9) as packed from customers;
select lastname, hex(packed) as packed, dec_round(dec_unpack(packed), 12, 2) as balance
from dec_balances order by packed;
