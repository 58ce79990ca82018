#include "Search.h"

#include <algorithm>
#include <cstring>
#include <unordered_set>
#include <utility>

namespace pricemsg::schema {

namespace {

bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}
bool IsUpper(char c) { return c >= 'A' && c <= 'Z'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsAlnum(char c) { return IsDigit(c) || IsUpper(c) || (c >= 'a' && c <= 'z'); }
char ToLower(char c) { return IsUpper(c) ? static_cast<char>(c - 'A' + 'a') : c; }

std::string Lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = ToLower(c);
  return out;
}

// The runs of characters between blanks, lower case.
std::vector<std::string> SplitWords(std::string_view text) {
  std::vector<std::string> out;
  for (size_t at = 0; at < text.size();) {
    while (at < text.size() && IsSpace(text[at])) ++at;
    size_t end = at;
    while (end < text.size() && !IsSpace(text[end])) ++end;
    if (end > at) out.push_back(Lower(text.substr(at, end - at)));
    at = end;
  }
  return out;
}

// The words of a description, lower case: its runs of letters and digits.
std::vector<std::string> TextWords(std::string_view text) {
  std::vector<std::string> out;
  for (size_t at = 0; at < text.size();) {
    while (at < text.size() && !IsAlnum(text[at])) ++at;
    size_t end = at;
    while (end < text.size() && IsAlnum(text[end])) ++end;
    if (end > at) out.push_back(Lower(text.substr(at, end - at)));
    at = end;
  }
  return out;
}

std::string Joined(const std::vector<std::string>& words, const char* between) {
  std::string out;
  for (const std::string& w : words) out += (out.empty() ? "" : between) + w;
  return out;
}

// A class or field as the search weighs it: its name, that name in lower
// case, and the words of its description or role.
struct Entry {
  const char* name;
  std::string lower;
  std::vector<std::string> words;
};

Entry EntryOf(const char* name, const char* text) { return {name, Lower(name), TextWords(text)}; }

// How well `needle` (lower case) is in a name: 0 not at all, 2 inside a
// part of the name, 3 where a part starts ("barr" in M_FxDblBarr).
int NameScore(const Entry& e, const std::string& needle) {
  if (needle.empty() || needle.size() > e.lower.size()) return 0;
  int best = 0;
  for (size_t at = e.lower.find(needle); at != std::string::npos;
       at = e.lower.find(needle, at + 1)) {
    const char c = e.name[at];
    const bool starts =
        at == 0 || e.name[at - 1] == '_' || IsUpper(c) || (IsDigit(c) && !IsDigit(e.name[at - 1]));
    best = std::max(best, starts ? 3 : 2);
    if (best == 3) break;
  }
  return best;
}

// Whether `many` is `one` and an "s".
bool PluralOf(const std::string& one, const std::string& many) {
  return many.size() == one.size() + 1 && many.back() == 's' &&
         many.compare(0, one.size(), one) == 0;
}

// Whether a query word is this word of a text, or its plural or singular.
bool SameWord(const std::string& query, const std::string& word) {
  return query == word || PluralOf(query, word) || PluralOf(word, query);
}

// 1 if the words follow one another among `text`, else 0.
int TextScore(const std::vector<std::string>& text, const std::vector<std::string>& words) {
  for (size_t at = 0; at + words.size() <= text.size(); ++at) {
    size_t n = 0;
    while (n < words.size() && SameWord(words[n], text[at + n])) ++n;
    if (n == words.size()) return 1;
  }
  return 0;
}

// A term with the words glued, as a name would hold them.
struct Weighed {
  const SearchTerm* term;
  std::string glued;
};

std::vector<Weighed> Weigh(const std::vector<SearchTerm>& terms) {
  std::vector<Weighed> out;
  for (const SearchTerm& t : terms) out.push_back({&t, Joined(t.words, "")});
  return out;
}

int TermScore(const Weighed& w, const Entry& e) {
  int best = NameScore(e, w.glued);
  for (const std::string& part : w.term->parts) best = std::max(best, NameScore(e, part));
  return best > 0 ? best : TextScore(e.words, w.term->words);
}

// How well the terms match an entry: 0 unless every term does.
int QueryScore(const std::vector<Weighed>& terms, const Entry& e) {
  int total = 0;
  for (const Weighed& w : terms) {
    const int score = TermScore(w, e);
    if (score == 0) return 0;
    total += score;
  }
  return total;
}

bool IsRequest(const ClassInfo& c) { return std::strcmp(c.role, "request") == 0; }

}  // namespace

std::vector<SearchTerm> ReadQuery(std::string_view query) {
  const std::vector<std::string> words = SplitWords(query);
  size_t longest = 1;  // the most words of a phrase of the list
  for (const WordInfo& w : Words()) longest = std::max(longest, SplitWords(w.phrase).size());
  std::vector<SearchTerm> terms;
  std::unordered_set<std::string> seen;
  for (size_t at = 0; at < words.size();) {
    SearchTerm term;
    for (size_t n = std::min(longest, words.size() - at); n > 0; --n) {
      term.words.assign(words.begin() + static_cast<std::ptrdiff_t>(at),
                        words.begin() + static_cast<std::ptrdiff_t>(at + n));
      if (const WordInfo* listed = FindWord(Joined(term.words, " "))) {
        term.parts = SplitWords(listed->parts);
        break;
      }
    }
    at += term.words.size();
    if (seen.insert(Joined(term.words, " ")).second) terms.push_back(std::move(term));
  }
  return terms;
}

std::vector<const ClassInfo*> SearchClasses(const std::vector<SearchTerm>& terms,
                                            std::string_view role, std::string_view family) {
  const std::vector<Weighed> weighed = Weigh(terms);
  std::vector<std::pair<int, const ClassInfo*>> found;
  for (const ClassInfo& c : Classes()) {
    if ((!role.empty() && role != c.role) || (!family.empty() && family != c.family)) continue;
    const int score = weighed.empty() ? 1 : QueryScore(weighed, EntryOf(c.name, c.description));
    if (score > 0) found.emplace_back(score, &c);
  }
  std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
    const ClassInfo& x = *a.second;
    const ClassInfo& y = *b.second;
    if (IsRequest(x) != IsRequest(y)) return IsRequest(x);
    if (a.first != b.first) return a.first > b.first;
    const size_t lx = std::strlen(x.name);
    const size_t ly = std::strlen(y.name);
    return lx != ly ? lx < ly : Lower(x.name) < Lower(y.name);
  });
  std::vector<const ClassInfo*> out;
  for (const auto& f : found) out.push_back(f.second);
  return out;
}

std::vector<const FieldInfo*> SearchFields(const std::vector<SearchTerm>& terms) {
  const std::vector<Weighed> weighed = Weigh(terms);
  std::vector<std::pair<int, const FieldInfo*>> found;
  if (weighed.empty()) return {};
  for (const FieldInfo& f : Fields()) {
    const int score = QueryScore(weighed, EntryOf(f.name, f.role));
    if (score > 0) found.emplace_back(score, &f);
  }
  std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) {
    return a.first != b.first ? a.first > b.first : Lower(a.second->name) < Lower(b.second->name);
  });
  std::vector<const FieldInfo*> out;
  for (const auto& f : found) out.push_back(f.second);
  return out;
}

const SearchTerm* Unmatched(const std::vector<SearchTerm>& terms, bool orField) {
  std::vector<Entry> entries;
  for (const ClassInfo& c : Classes()) entries.push_back(EntryOf(c.name, c.description));
  if (orField) {
    for (const FieldInfo& f : Fields()) entries.push_back(EntryOf(f.name, f.role));
  }
  for (const Weighed& w : Weigh(terms)) {
    const bool matches = std::any_of(entries.begin(), entries.end(),
                                     [&](const Entry& e) { return TermScore(w, e) > 0; });
    if (!matches) return w.term;
  }
  return nullptr;
}

std::string Words(const SearchTerm& term) { return Joined(term.words, " "); }

}  // namespace pricemsg::schema
