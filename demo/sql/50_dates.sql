.print
.print '== Dates and datetimes (settings DBDATE, DBDATETIME from the environment)'
.mode box
select datesettings()                  as "DBDATE DBDATETIME",
       datetext(today())               as today,
       today()                         as day_number,
       datetext(todate('1/1/51'))      as two_digit_year,
       ifnull(todate('29/02/2021'), 'NULL') as bad_date;

.print '-- customers: birth text parsed under DBDATE, printed back, ages from today'
with c as (select firstname, todate(birth) as born, since from customers)
select firstname,
       born                                                      as day_number,
       datetext(born)                                            as birth,
       format(asdate(born), 'ddd dd mmm yyyy')                   as spelt,
       yeardate(today()) - yeardate(born)
         - (monthdate(today()) * 100 + daydate(today())
            < monthdate(born) * 100 + daydate(born))             as age,
       datetext(since)                                           as customer_since,
       today() - since                                           as days_as_customer
from c;

.print '-- datetimes: local time of this process, date part under DBDATETIME'
select todatetime('25/12/2020 13:45')                     as seconds,
       datetimetext(todatetime('25/12/2020 13:45'))       as text,
       datetimetext(todatetime('25.12.2020'))             as midnight,
       ifnull(todatetime('25/12/2020 24:00'), 'NULL') as bad_hour;
