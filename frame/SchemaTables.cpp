#include "SchemaTables.h"

#include <algorithm>
#include <string>
#include <tuple>

#include "SchemaData.h"

namespace pricemsg::schema {

using namespace detail;

namespace {

// Where in `index` (`count` indexes, in ascending order of `keyOf`) the one
// whose key is `want` stands; null if there is none.
template <class Key, class KeyOf>
const int* Search(const int* index, int count, const Key& want, KeyOf keyOf) {
  const int* end = index + count;
  const int* at =
      std::lower_bound(index, end, want, [&](int i, const Key& key) { return keyOf(i) < key; });
  return at != end && keyOf(*at) == want ? at : nullptr;
}

template <class T>
const T* Entry(const T* table, const int* at) {
  return at ? &table[*at] : nullptr;
}

std::string Lower(std::string_view text) {
  std::string out(text);
  for (char& c : out) c = (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
  return out;
}

size_t EditDistance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

}  // namespace

// The edits between two names are at least the difference of their lengths,
// so a name too long or too short to be near is passed over unmeasured.
std::vector<std::string_view> Nearest(std::string_view text,
                                      const std::vector<std::string_view>& names) {
  const std::string lower = Lower(text);
  const size_t reach = std::max<size_t>(2, lower.size() / 3);
  std::vector<std::tuple<bool, size_t, std::string_view>> ranked;
  for (std::string_view name : names) {
    const size_t apart =
        name.size() > lower.size() ? name.size() - lower.size() : lower.size() - name.size();
    if (name.size() < lower.size() && apart > reach) continue;
    const std::string candidate = Lower(name);
    // A name that holds the text is that many deletions from it.
    if (candidate.size() >= lower.size() && candidate.find(lower) != std::string::npos) {
      ranked.emplace_back(false, apart, name);
    } else if (apart <= reach) {
      const size_t distance = EditDistance(lower, candidate);
      if (distance <= reach) ranked.emplace_back(true, distance, name);
    }
  }
  const size_t n = std::min<size_t>(3, ranked.size());
  std::partial_sort(ranked.begin(), ranked.begin() + static_cast<std::ptrdiff_t>(n), ranked.end());
  std::vector<std::string_view> out;
  for (size_t i = 0; i < n; ++i) out.push_back(std::get<2>(ranked[i]));
  return out;
}

Table<KindInfo> Kinds() { return {kKinds, kKindCount}; }
Table<FieldInfo> Fields() { return {kFields, kFieldCount}; }
Table<ClassInfo> Classes() { return {kClasses, kClassCount}; }
Table<WordInfo> Words() { return {kWords, kWordCount}; }

const KindInfo& InfoOf(Kind kind) { return kKinds[static_cast<int>(kind)]; }

const ClassInfo* FindClass(int number) {
  return Entry(kClasses, Search(kClassesByNumber, kClassCount, number,
                                [](int i) { return kClasses[i].number; }));
}

const ClassInfo* FindClass(std::string_view name) {
  return Entry(kClasses, Search(kClassesByName, kClassCount, name,
                                [](int i) { return std::string_view(kClasses[i].name); }));
}

const FieldInfo* FindField(std::string_view name) {
  return Entry(kFields, Search(kFieldsByName, kFieldCount, name,
                               [](int i) { return std::string_view(kFields[i].name); }));
}

const WordInfo* FindWord(std::string_view phrase) {
  const WordInfo* end = kWords + kWordCount;
  const WordInfo* at = std::lower_bound(
      kWords, end, phrase, [](const WordInfo& w, std::string_view p) { return w.phrase < p; });
  return at != end && at->phrase == phrase ? at : nullptr;
}

int IndexOf(const ClassInfo& c) { return static_cast<int>(&c - kClasses); }

const FieldInfo& MemberOf(const ClassInfo& c, int i) {
  return kFields[kMembers[c.firstMember + i]];
}

// A class's run of kMembers is in tag order, so it is an index of its fields
// by tag.
int MemberIndex(const ClassInfo& c, int tag) {
  const int* run = kMembers + c.firstMember;
  const int* at = Search(run, c.memberCount, tag, [](int i) { return kFields[i].tag; });
  return at ? static_cast<int>(at - run) : -1;
}

const FieldInfo* FindMember(const ClassInfo& c, int tag) {
  const int i = MemberIndex(c, tag);
  return i < 0 ? nullptr : &MemberOf(c, i);
}

// The field of that name gives the tag; the class's field under the tag may
// be its twin, of another name.
const FieldInfo* FindMember(const ClassInfo& c, std::string_view name) {
  const FieldInfo* field = FindField(name);
  const FieldInfo* member = field ? FindMember(c, field->tag) : nullptr;
  return member == field ? member : nullptr;
}

const ClassInfo& HeldClass(const FieldInfo& f) { return kClasses[f.held]; }

const ClassInfo* LikelyReply(const ClassInfo& c) {
  return c.reply >= 0 && c.reply < kClassCount ? &kClasses[c.reply] : nullptr;
}

}  // namespace pricemsg::schema
