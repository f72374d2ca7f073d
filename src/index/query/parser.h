// Reads query text into a Query tree.
//
//   query      := or_expr
//   or_expr    := and_expr { "||" and_expr }
//   and_expr   := unary { "&&" unary }
//   unary      := "!" unary | primary
//   primary    := "(" or_expr ")" | comparison | inrange | "true" | "false"
//   comparison := attr op ["[" mods "]"] value
//   inrange    := "InRange" "(" attr "," value "," value ")"
//   attr       := "*" | "**" | NAME
//
// "!" binds tightest, then "&&", then "||"; "=" and "==" are the same.
// Keywords (InRange, true, false, null, nil, $time…) are case-insensitive;
// attribute names are case-sensitive and need not be known to the schema.
// A name followed by an operator is always an attribute, so attributes
// called "true" or "InRange" still work.
//
// An empty group, "()", says nothing: the group around it leaves it out, as
// the criteria tree leaves out an empty row ("! ( )" is empty too); a query
// of nothing else matches every item.
//
// A query that does not parse is rejected whole: the Failure (kind
// InvalidQuery) reads "position N: expected …", N being the 1-based
// character (code point) position in the text. Nesting of parentheses and
// "!" is capped at kMaxQueryDepth, so hostile input cannot exhaust the
// stack.
//
// Thread safety: reentrant.
#pragma once

#include "index/expected.h"
#include "index/query/ast.h"
#include "index/schema.h"

#include <cstddef>
#include <string_view>

namespace trovara::index::query {

inline constexpr std::size_t kMaxQueryDepth = 100;

// Text values compared with a number, date or Boolean attribute of
// `schema` must read as such a value.
Expected<Query> parseQuery(std::string_view text, const Schema& schema = Schema::builtin());

}  // namespace trovara::index::query
