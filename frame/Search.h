// Searching the catalogue by the words people use: "fx barrier", "range
// accrual note", "swaption".
//
// A query is read as terms: a phrase of the word list ("range accrual"),
// longest first, else a single word; a term that comes again counts once. A
// term matches a class when it is in the class's name (any case), when one
// of the name parts that its phrase stands for is, or when it is a word (or
// words, in a row) of the class's description, in the singular or the
// plural. A class matches a query when every term does. Fields match by
// name or role likewise.
//
// The cost grows with the query and no faster: each term is weighed once
// against each class, and a class is passed over at the first term that
// does not match it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "SchemaTables.h"

namespace pricemsg::schema {

struct SearchTerm {
  std::vector<std::string> words;  // lower case: one word, or a phrase of the word list
  std::vector<std::string> parts;  // the name parts its phrase stands for, lower case
};

// The terms of a query: its words are the runs of characters between
// blanks.
PRICEMSG_EXPORT std::vector<SearchTerm> ReadQuery(std::string_view query);

// The classes that match every term, best first: the requests, then by how
// well they match, then the shorter name (the plainer product), then by name
// in any case. Only classes of `role` and of `family`, where they are not
// empty.
PRICEMSG_EXPORT std::vector<const ClassInfo*> SearchClasses(const std::vector<SearchTerm>& terms,
                                                            std::string_view role = {},
                                                            std::string_view family = {});
// The fields that match every term by name or role: best first, then by
// name in any case.
PRICEMSG_EXPORT std::vector<const FieldInfo*> SearchFields(const std::vector<SearchTerm>& terms);

// The first term that matches no class (nor, with `orField`, any field);
// null if each term matches something.
PRICEMSG_EXPORT const SearchTerm* Unmatched(const std::vector<SearchTerm>& terms, bool orField);

// The words of a term, separated by a blank.
PRICEMSG_EXPORT std::string Words(const SearchTerm& term);

}  // namespace pricemsg::schema
