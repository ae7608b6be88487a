// The decimal SQL functions of the SQLite extension, end to end: one check
// per function and per way a value comes in; the rules themselves are
// tested in test_decimal.
#include <string>

#include "tests/sqlite_fixture.hpp"

namespace {

using udfkit::test::SqliteDb;

TEST(SqliteDecimal, ScalarFunctions) {
    SqliteDb db;
    const struct { const char *sql, *want; } cases[] = {
        {"select dec_add('1,234.50', 7, -0.5)", "1241"},
        {"select dec_add(0.1, 0.2)", "0.3"},
        {"select dec_add(-9223372036854775808, 1)", "-9223372036854775807"},
        {"select dec_add(dec_pack('1.25', 5), '0.75')", "2"},
        {"select dec_add(null, 1)", "NULL"},
        {"select dec_sub('10.05', '0.06')", "9.99"},
        {"select dec_cmp('-1000', '-1')", "i:-1"},
        {"select dec_round('999.995', 5, 2)", "NULL"},
        {"select dec_round('1.235', 10, 2)", "1.24"},
        {"select dec_format('2.5', 8, 3)", "2.500   "},
        {"select hex(dec_pack('-1.5', 4))", "3E623200"},
        {"select length(dec_pack(1))", "i:17"},
        {"select dec_unpack(dec_pack('-1234.5678', 9))", "-1234.5678"},
        // not numbers, or not decimals: NULL
        {"select dec_unpack(x'ee88')", "NULL"},
        {"select dec_add(x'33212ba06dd71396e8f3db43', 0)", "NULL"},
        {"select dec_add('-', 1)", "NULL"},
        {"select dec_add('1e200', 1)", "NULL"},
    };
    for (const auto &c : cases) EXPECT_EQ(db.one(c.sql), c.want) << c.sql;
    EXPECT_NE(db.error("select dec_round(1, 0, 0)").find("precision"), std::string::npos);
    EXPECT_NE(db.error("select dec_round(1, 5, 6)").find("scale"), std::string::npos);
    EXPECT_NE(db.error("select dec_pack(1, 1)").find("length"), std::string::npos);
    EXPECT_NE(db.error("select dec_unpack('1')").find("BLOB"), std::string::npos);
}

TEST(SqliteDecimal, ExactSums) {
    SqliteDb db;
    db.exec("create table t(a text, p blob)");
    db.exec("with recursive n(i) as (select 1 union all select i + 1 from n where i < 1000) "
            "insert into t select '0.1', dec_pack('0.1', 5) from n");
    EXPECT_EQ(db.one("select dec_sum(a) from t"), "100");
    EXPECT_EQ(db.one("select dec_sum(p) from t"), "100");
    EXPECT_EQ(db.one("select dec_sum(a) from t where 0"), "NULL");
    EXPECT_EQ(db.one("select dec_sum(x) from (select null as x union all select '2.5')"), "2.5");
    EXPECT_EQ(db.one("select dec_sum(x) from (select 'bad' as x union all select '2.5')"), "NULL");
    db.exec("create table v(x text)");
    db.exec("insert into v values ('12.5'), ('-3'), ('0'), ('0.001'), ('-0.25'), ('1e5')");
    EXPECT_EQ(db.rows("select x from v order by dec_pack(x, 6)").front().front(), "-3");
}

}  // namespace
