// The decimal SQL functions of the SQLite extension, end to end.
#include <string>

#include "tests/sqlite_fixture.hpp"

namespace {

using udfkit::test::SqliteDb;

TEST(SqliteDecimal, ScalarFunctions) {
    SqliteDb db;
    struct Case {
        const char *sql;
        const char *want;
    } cases[] = {
        {"select dec_add('0.1', '0.2')", "0.3"},
        {"select dec_add(0.1, 0.2)", "0.3"},
        {"select dec_add('1,234.50', 7, -0.5)", "1241"},
        {"select dec_add('99999999999999999999999999999999', 1)", "100000000000000000000000000000000"},
        {"select dec_add('1e200', 1)", "NULL"},
        {"select dec_add('12abc', 1)", "NULL"},
        {"select dec_add(null, 1)", "NULL"},
        {"select dec_add(-9223372036854775808, 1)", "-9223372036854775807"},
        {"select dec_sub('10.05', '0.06')", "9.99"},
        {"select dec_sub('0.5', 0.5)", "0"},
        {"select dec_cmp('-1000', '-1')", "i:-1"},
        {"select dec_cmp('0', '-5')", "i:1"},
        {"select dec_cmp('1.50', 1.5)", "i:0"},
        {"select dec_cmp(null, 1)", "NULL"},
        {"select dec_round('1.235', 10, 2)", "1.24"},
        {"select dec_round('-1.235', 10, 2)", "-1.24"},
        {"select dec_round('1.2', 10, 3)", "1.200"},
        {"select dec_round('1.25', 10, 1)", "1.3"},
        {"select dec_round('-0.004', 10, 2)", "0.00"},
        {"select dec_round('2.5', 5, 0)", "3"},
        {"select dec_round('999.995', 5, 2)", "NULL"},
        {"select dec_round('999.994', 5, 2)", "999.99"},
        {"select dec_format('3.14159', 6, 4)", "3.1416"},
        {"select dec_format('3.14159', 5, 4)", "3.142"},
        {"select dec_format('123456789012', 8, 2)", "1.235e11"},
        {"select dec_format('-99999', 3, 0)", "***"},
        {"select dec_format('2.5', 8, 3)", "2.500   "},
        {"select dec_unpack(dec_pack('-1234.5678', 9))", "-1234.5678"},
        {"select dec_unpack(dec_pack('0.995', 2))", "1"},
        {"select hex(dec_pack('12345', 4))", "C301172D"},
        {"select hex(dec_pack('-1.5', 4))", "3E623200"},
        {"select hex(dec_pack('0', 4))", "80000000"},
        {"select length(dec_pack(1))", "i:17"},
        {"select dec_unpack(dec_pack(0))", "0"},
        {"select dec_add(dec_pack('1.25', 5), '0.75')", "2"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(db.one(c.sql), c.want) << c.sql;
    }
    EXPECT_NE(db.error("select dec_round(1, 0, 0)").find("precision"), std::string::npos);
    EXPECT_NE(db.error("select dec_round(1, 5, 6)").find("scale"), std::string::npos);
    EXPECT_NE(db.error("select dec_pack(1, 1)").find("length"), std::string::npos);
    EXPECT_NE(db.error("select dec_unpack('1')").find("BLOB"), std::string::npos);
}

TEST(SqliteDecimal, ExactSumsAndPackedOrder) {
    SqliteDb db;
    db.exec("create table t(a text, p blob)");
    db.exec("with recursive n(i) as (select 1 union all select i + 1 from n where i < 1000) "
            "insert into t select '0.1', dec_pack('0.1', 5) from n");
    EXPECT_EQ(db.one("select dec_sum(a) from t"), "100");
    EXPECT_EQ(db.one("select dec_sum(p) from t"), "100");
    EXPECT_NE(db.one("select sum(cast(a as real)) = 100 from t"), "i:1");  // floats drift
    EXPECT_EQ(db.one("select dec_sum(a) from t where 0"), "NULL");
    EXPECT_EQ(db.one("select dec_sum(x) from (select null as x union all select '2.5')"), "2.5");
    EXPECT_EQ(db.one("select dec_sum(x) from (select 'bad' as x union all select '2.5')"), "NULL");

    db.exec("create table v(x text)");
    db.exec("insert into v values ('12.5'), ('-3'), ('0'), ('0.001'), ('-0.25'), ('1e5'), "
            "('-1e5'), ('0.5'), ('99.99'), ('-0.001'), ('100')");
    auto rows = db.rows("select x from v order by dec_pack(x, 6)");
    std::string order;
    for (const auto &r : rows) order += r[0] + " ";
    EXPECT_EQ(order, "-1e5 -3 -0.25 -0.001 0 0.001 0.5 12.5 99.99 100 1e5 ");
}

}  // namespace
