// Anonymisation through a real SQLite connection with the extension and the
// shipped dictionaries.
#include <gtest/gtest.h>

#include <stdlib.h>

#include "tests/sqlite_fixture.hpp"

using udfkit::test::SqliteDb;

namespace {

TEST(SqliteAnon, EqualInputsGiveEqualOutputsAcrossRows) {
    setenv("UDFKIT_DICT_DIR", UDFKIT_SOURCE_DIR "/data", 1);
    SqliteDb db;
    const struct { const char *sql, *expected; } cases[] = {
        {"select anonymize_first('marie', 2)", "Marie-Pierre"},
        {"select anonymize_last('Dupont')", "Barbier"},
        {"select anonymize_nss('1234567890123', 255)", "1          ff"},
        {"select anonymize_email('jean.dupont@example.fr')", "lc97hz18kby@anonyme.invalid"},
        {"select anonymize_letter('', 'abc')", "NULL"},  // the empty char is NULL
        {"select anonymize_last(NULL) = anonymize_last('')", "i:1"},
    };
    for (const auto &c : cases) EXPECT_EQ(db.one(c.sql), c.expected) << c.sql;

    db.exec("create table p(first text, sex int, last text, email text);"
            "insert into p values ('Jean', 0, 'Martin', 'a@x.fr'), ('Anne', 1, 'Petit', 'b@x.fr'),"
            " ('Jean', 0, 'Martin', 'a@x.fr'), ('Zoé', 2, 'Durand', 'c@y.fr'),"
            " ('Anne', 1, 'Petit', 'b@x.fr')");
    EXPECT_EQ(db.one("select count(distinct anonymize_first(first, sex) || '/' ||"
                     " anonymize_last(last) || '/' || anonymize_email(email)) from p"),
              "i:3");
}

}  // namespace
