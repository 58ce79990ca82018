#include "SchemaTables.h"

#include <algorithm>

#include "SchemaIndex.h"

namespace pricemsg::schema {

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

}  // namespace

const KindInfo& InfoOf(Kind kind) { return kKinds[static_cast<int>(kind)]; }

const ClassInfo* FindClass(int number) {
  return Entry(kClasses, Search(detail::kClassesByNumber, kClassCount, number,
                                [](int i) { return kClasses[i].number; }));
}

const ClassInfo* FindClass(std::string_view name) {
  return Entry(kClasses, Search(detail::kClassesByName, kClassCount, name,
                                [](int i) { return std::string_view(kClasses[i].name); }));
}

const FieldInfo* FindField(std::string_view name) {
  return Entry(kFields, Search(detail::kFieldsByName, kFieldCount, name,
                               [](int i) { return std::string_view(kFields[i].name); }));
}

const WordInfo* FindWord(std::string_view phrase) {
  const WordInfo* end = kWords + kWordCount;
  const WordInfo* at = std::lower_bound(
      kWords, end, phrase, [](const WordInfo& w, std::string_view p) { return w.phrase < p; });
  return at != end && at->phrase == phrase ? at : nullptr;
}

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

const ClassInfo& HeldClass(const FieldInfo& f) { return kClasses[f.held]; }

}  // namespace pricemsg::schema
