#include "SchemaTables.h"

#include <algorithm>

#include "SchemaIndex.h"

namespace pricemsg::schema {

namespace {

// The entry of `index` (`count` indexes, in ascending order of `keyOf`) whose
// key is `want`; -1 if there is none.
template <class Key, class KeyOf>
int Search(const int* index, int count, const Key& want, KeyOf keyOf) {
  const int* end = index + count;
  const int* at =
      std::lower_bound(index, end, want, [&](int i, const Key& key) { return keyOf(i) < key; });
  return at != end && keyOf(*at) == want ? *at : -1;
}

template <class T>
const T* At(const T* table, int i) {
  return i < 0 ? nullptr : &table[i];
}

}  // namespace

const KindInfo& InfoOf(Kind kind) { return kKinds[static_cast<int>(kind)]; }

const ClassInfo* FindClass(int number) {
  return At(kClasses, Search(detail::kClassesByNumber, kClassCount, number,
                             [](int i) { return kClasses[i].number; }));
}

const ClassInfo* FindClass(std::string_view name) {
  return At(kClasses, Search(detail::kClassesByName, kClassCount, name,
                             [](int i) { return std::string_view(kClasses[i].name); }));
}

const FieldInfo* FindField(std::string_view name) {
  return At(kFields, Search(detail::kFieldsByName, kFieldCount, name,
                            [](int i) { return std::string_view(kFields[i].name); }));
}

const FieldInfo& MemberOf(const ClassInfo& c, int i) {
  return kFields[kMembers[c.firstMember + i]];
}

// A class's run of kMembers is in tag order, so it is an index of its fields
// by tag.
const FieldInfo* FindMember(const ClassInfo& c, int tag) {
  return At(kFields, Search(kMembers + c.firstMember, c.memberCount, tag,
                            [](int i) { return kFields[i].tag; }));
}

const ClassInfo& HeldClass(const FieldInfo& f) { return kClasses[f.held]; }

}  // namespace pricemsg::schema
