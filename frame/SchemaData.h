// The data behind SchemaTables.h and the reflection, generated from schema/
// (tables/SchemaTables.cpp in the build tree). Internal to libpricemsg: other
// libraries and programs reach the tables through the functions of
// SchemaTables.h.
#pragma once

#include "MsgPattern.h"
#include "SchemaTables.h"

namespace pricemsg::schema::detail {

extern const KindInfo kKinds[];
extern const int kKindCount;
extern const FieldInfo kFields[];
extern const int kFieldCount;
// The fields of the classes, as indexes in kFields: each class's run in tag
// order.
extern const int kMembers[];
extern const ClassInfo kClasses[];
extern const int kClassCount;
extern const WordInfo kWords[];
extern const int kWordCount;

// Indexes in kClasses by ascending number, and by name.
extern const int kClassesByNumber[];
extern const int kClassesByName[];
// Indexes in kFields by name.
extern const int kFieldsByName[];

// The walk and the makers of each class, in the order of kClasses.
extern const pricemsg::detail::ClassOps* const kClassOps[];

}  // namespace pricemsg::schema::detail
