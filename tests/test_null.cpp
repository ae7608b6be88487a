// Null values of every type and the conversion error flag.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "udfkit/convert.h"
#include "udfkit/null.h"

namespace {

// Big enough for any scalar storage, including a decimal record.
struct Cell {
    alignas(8) unsigned char bytes[32];
};

template <class T>
Cell cell_of(T v) {
    Cell c{};
    std::memcpy(c.bytes, &v, sizeof v);
    return c;
}

struct NullCase {
    const char *name;
    uint16_t type;
    Cell value;
    int32_t null;
};

TEST(Null, IsNullVarPerType) {
    const double qnan = std::numeric_limits<double>::quiet_NaN();
    const NullCase cases[] = {
        {"char empty", UDF_T_CHAR, cell_of('\0'), 1},
        {"char x", UDF_T_CHAR, cell_of('x'), 0},
        {"smallint min", UDF_T_SMALLINT, cell_of<int16_t>(-32768), 1},
        {"smallint 0", UDF_T_SMALLINT, cell_of<int16_t>(0), 0},
        {"smallint -32767", UDF_T_SMALLINT, cell_of<int16_t>(-32767), 0},
        {"int min", UDF_T_INTEGER, cell_of<int32_t>(INT32_MIN), 1},
        {"int 0", UDF_T_INTEGER, cell_of<int32_t>(0), 0},
        {"serial min", UDF_T_SERIAL, cell_of<int32_t>(INT32_MIN), 1},
        {"date 0", UDF_T_DATE, cell_of<int32_t>(0), 1},
        {"date min", UDF_T_DATE, cell_of<int32_t>(INT32_MIN), 1},
        {"date 1", UDF_T_DATE, cell_of<int32_t>(1), 0},
        {"datetime32 0", UDF_T_DATETIME32, cell_of<int32_t>(0), 0},
        {"datetime32 min", UDF_T_DATETIME32, cell_of<int32_t>(INT32_MIN), 1},
        {"float ones", UDF_T_FLOAT, cell_of<uint64_t>(~0ull), 1},
        {"float qnan", UDF_T_FLOAT, cell_of(qnan), 0},
        {"float low half ones", UDF_T_FLOAT, cell_of<uint64_t>(0xffffffffull), 0},
        {"smallfloat ones", UDF_T_SMALLFLOAT, cell_of<uint64_t>(~0ull), 0},
        {"long min", UDF_T_LONGINT, cell_of<int64_t>(INT64_MIN), 1},
        {"long 0", UDF_T_LONGINT, cell_of<int64_t>(0), 0},
        {"timestamp min", UDF_T_TIMESTAMP, cell_of<int64_t>(INT64_MIN), 1},
        {"datetime min", UDF_T_DATETIME, cell_of<int64_t>(INT64_MIN), 1},
        {"datetime min+1", UDF_T_DATETIME, cell_of<int64_t>(INT64_MIN + 1), 0},
        {"user type", 14, cell_of<int64_t>(INT64_MIN), 0},
        {"user type 0xffff", 0xffff, cell_of<int64_t>(INT64_MIN), 0},
    };
    for (const auto &c : cases) {
        Cell v = c.value;
        SqlVar var{c.type, 8, v.bytes};
        EXPECT_EQ(_is_null_var(&var), c.null) << c.name;
    }
}

TEST(Null, NullvarWritesWhatIsNullVarAccepts) {
    const uint16_t types[] = {UDF_T_CHAR, UDF_T_SMALLINT, UDF_T_INTEGER, UDF_T_FLOAT,
                              UDF_T_DECIMAL, UDF_T_SERIAL, UDF_T_DATE, UDF_T_DATETIME32,
                              UDF_T_LONGINT, UDF_T_TIMESTAMP, UDF_T_DATETIME};
    for (uint16_t t : types) {
        Cell c;
        std::memset(c.bytes, 0x11, sizeof c.bytes);
        SqlVar var{t, 8, c.bytes};
        EXPECT_EQ(_is_null_var(&var), 0) << t;
        _nullvar(&var);
        EXPECT_EQ(_is_null_var(&var), 1) << t;
    }
}

TEST(Null, NullvarExactBits) {
    Cell c;
    std::memset(c.bytes, 0x11, sizeof c.bytes);
    SqlVar v{UDF_T_SMALLINT, 0, c.bytes};
    _nullvar(&v);
    EXPECT_EQ(c.bytes[0], 0x00);
    EXPECT_EQ(c.bytes[1], 0x80);
    EXPECT_EQ(c.bytes[2], 0x11) << "smallint null writes two bytes only";

    std::memset(c.bytes, 0x11, sizeof c.bytes);
    v = {UDF_T_FLOAT, 4, c.bytes};
    _nullvar(&v);
    EXPECT_EQ(c.bytes[3], 0xff);
    EXPECT_EQ(c.bytes[4], 0x11) << "float null fills exactly var_size bytes";

    // Decimal: exponent 0, sign -1, no digits; the digits stay as they were.
    std::memset(c.bytes, 0x11, sizeof c.bytes);
    v = {UDF_T_DECIMAL, 0x0502, c.bytes};
    _nullvar(&v);
    int16_t head[3];
    std::memcpy(head, c.bytes, sizeof head);
    EXPECT_EQ(head[0], 0);
    EXPECT_EQ(head[1], -1);
    EXPECT_EQ(head[2], 0);
    EXPECT_EQ(c.bytes[6], 0x11);
    // Only the sign decides: other fields may hold anything.
    head[2] = 7;
    std::memcpy(c.bytes, head, sizeof head);
    EXPECT_EQ(_is_null_var(&v), 1);
    // The float test on a null decimal's first bytes says no.
    EXPECT_EQ(_is_nulld(reinterpret_cast<const double *>(c.bytes)), 0);

    for (uint16_t t : {uint16_t(UDF_T_SMALLFLOAT), uint16_t(14), uint16_t(200)}) {
        std::memset(c.bytes, 0x11, sizeof c.bytes);
        v = {t, 8, c.bytes};
        _nullvar(&v);
        for (unsigned char b : c.bytes) ASSERT_EQ(b, 0x11) << t;
    }
}

TEST(Null, VcharReleasesOnce) {
    VChar vc{5, static_cast<char *>(std::malloc(5))};
    std::memcpy(vc.vc_data, "hello", 5);
    SqlVar v{UDF_T_VCHAR, 0, &vc};
    EXPECT_EQ(_is_null_var(&v), 0);
    _nullvar(&v);
    EXPECT_EQ(vc.vc_len, 0);
    EXPECT_EQ(_is_null_var(&v), 1);
    // Already empty: nothing is freed again (the sanitizers would catch it).
    snullvchar(&vc);
    _nullvar(&v);

    VChar blob{3, static_cast<char *>(std::malloc(3))};
    snullvchar(&blob);
    snullvchar(&blob);
    EXPECT_EQ(blob.vc_len, 0);
}

TEST(ConvertionFlag, StickyReadAndClear) {
    IsConvertionError();
    EXPECT_EQ(IsConvertionError(), 0);
    SetConvertionError();
    EXPECT_EQ(IsConvertionError(), 1);
    EXPECT_EQ(IsConvertionError(), 0);
    SetConvertionError();
    SetConvertionError();
    EXPECT_EQ(IsConvertionError(), 1);
    EXPECT_EQ(IsConvertionError(), 0);
}

}  // namespace
