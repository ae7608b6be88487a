// Fuzzy search: conversion, settings, scores, highlights and excerpts.
#include "host/sqlite/bridge.hpp"

namespace {
using udfkit::sqlite::FunctionRow;
using udfkit::sqlite::Kind;

// The settings change process-wide state and the searches depend on it:
// none of them is deterministic for SQLite.
const FunctionRow kRows[] = {
    {"convert", 3, 3},
    {"fuzzysetisocode", 1, 1, Kind::Scalar, false},
    {"fuzzysetphonex", 1, 1, Kind::Scalar, false},
    {"fuzzysetspans", 2, 2, Kind::Scalar, false},
    {"fuzzysearch", 2, 3, Kind::Scalar, false},
    {"fuzzyhighlight", 2, 4, Kind::Scalar, false},
    {"fuzzyexcerpt", 4, 6, Kind::Scalar, false},
};
const udfkit::sqlite::RowBlock kBlock(kRows, sizeof kRows / sizeof kRows[0]);
}  // namespace
