// The sorted indexes behind the lookups of SchemaTables.h, generated with the
// tables. Internal to libpricemsg_text.
#pragma once

namespace pricemsg::schema::detail {

// Indexes in kClasses by ascending number, and by name.
extern const int kClassesByNumber[];
extern const int kClassesByName[];
// Indexes in kFields by name.
extern const int kFieldsByName[];

}  // namespace pricemsg::schema::detail
