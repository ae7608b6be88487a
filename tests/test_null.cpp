// Null values of every type and the conversion error flag.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>

#include "udfkit/null.h"

namespace {

struct Cell {
    alignas(8) unsigned char bytes[32];
};
template <class T>
Cell cell_of(T v) {
    Cell c{};
    std::memcpy(c.bytes, &v, sizeof v);
    return c;
}

TEST(Null, IsNullVarPerType) {
    const struct { const char *name; uint16_t type; Cell value; int32_t null; } cases[] = {
        {"char empty", UDF_T_CHAR, cell_of('\0'), 1},
        {"smallint min", UDF_T_SMALLINT, cell_of<int16_t>(-32768), 1},
        {"smallint -32767", UDF_T_SMALLINT, cell_of<int16_t>(-32767), 0},
        {"date 0", UDF_T_DATE, cell_of<int32_t>(0), 1},
        {"datetime32 0", UDF_T_DATETIME32, cell_of<int32_t>(0), 0},
        {"float quiet NaN", UDF_T_FLOAT, cell_of(std::nan("")), 0},
        {"float low half ones", UDF_T_FLOAT, cell_of<uint64_t>(0xffffffffull), 0},
        {"smallfloat ones", UDF_T_SMALLFLOAT, cell_of<uint64_t>(~0ull), 0},
        {"datetime min+1", UDF_T_DATETIME, cell_of<int64_t>(INT64_MIN + 1), 0},
        {"user type", 14, cell_of<int64_t>(INT64_MIN), 0},
    };
    for (auto c : cases) {
        SqlVar var{c.type, 8, c.value.bytes};
        EXPECT_EQ(_is_null_var(&var), c.null) << c.name;
    }
}

// What _nullvar writes is exactly what _is_null_var accepts, and no more.
TEST(Null, NullvarPerType) {
    const struct { uint16_t type; size_t written; } cases[] = {  // bytes changed from the 0x11 fill
        {UDF_T_CHAR, 1},     {UDF_T_SMALLINT, 2},  {UDF_T_INTEGER, 4},   {UDF_T_FLOAT, 8},
        {UDF_T_DECIMAL, 6},  {UDF_T_SERIAL, 4},    {UDF_T_DATE, 4},      {UDF_T_DATETIME32, 4},
        {UDF_T_LONGINT, 8},  {UDF_T_TIMESTAMP, 8}, {UDF_T_DATETIME, 8},  {UDF_T_SMALLFLOAT, 0},
        {15, 0}};
    for (auto c : cases) {
        Cell cell;
        std::memset(cell.bytes, 0x11, sizeof cell.bytes);
        SqlVar var{c.type, 8, cell.bytes};
        EXPECT_EQ(_is_null_var(&var), 0) << c.type;
        _nullvar(&var);
        EXPECT_EQ(_is_null_var(&var), c.written ? 1 : 0) << c.type;
        for (size_t i = c.written; i < sizeof cell.bytes; ++i)
            ASSERT_EQ(cell.bytes[i], 0x11) << "type " << c.type << " byte " << i;
    }
    // A null decimal: only the sign decides, and the float test says no.
    Decimal d{};
    std::memset(&d, 0x11, sizeof d);
    snulldec(&d);
    EXPECT_EQ(d.dec_exp, 0);
    EXPECT_EQ(d.dec_ndgts, 0);
    d.dec_ndgts = 7;
    SqlVar var{UDF_T_DECIMAL, 0x0502, &d};
    EXPECT_EQ(_is_null_var(&var), 1);
    EXPECT_EQ(_is_nulld(reinterpret_cast<const double *>(&d)), 0);
    // A float null fills var_size bytes.
    Cell f;
    std::memset(f.bytes, 0x11, sizeof f.bytes);
    SqlVar fv{UDF_T_FLOAT, 4, f.bytes};
    _nullvar(&fv);
    EXPECT_EQ(f.bytes[3], 0xff);
    EXPECT_EQ(f.bytes[4], 0x11);
}

TEST(Null, VcharReleasesOnce) {
    VChar vc{5, static_cast<char *>(std::malloc(5))};
    SqlVar v{UDF_T_BLOB, 0, &vc};
    EXPECT_EQ(_is_null_var(&v), 0);
    _nullvar(&v);
    EXPECT_EQ(_is_null_var(&v), 1);
    // Already empty: nothing is freed again (the sanitizers would tell).
    snullvchar(&vc);
    _nullvar(&v);
}

}  // namespace
