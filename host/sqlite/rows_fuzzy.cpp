// Fuzzy search: conversion, settings, scores, highlights and excerpts.
#include "host/sqlite/bridge.hpp"

namespace {
using udfkit::sqlite::FunctionRow;

const FunctionRow kRows[] = {
    {"convert", 3, 3},
    {"fuzzysetisocode", 1, 1, udfkit::sqlite::Kind::Scalar, false},
};
const udfkit::sqlite::RowBlock kBlock(kRows, sizeof kRows / sizeof kRows[0]);
}  // namespace
