// The catalogue tool's factory of fresh objects, generated from the schema
// with the classes (catalogue/CatalogueFactory.cpp in the build tree). What
// the tool knows of the classes comes from the schema tables of
// libpricemsg_text (SchemaTables.h).
#pragma once

#include <memory>

#include "MsgBase.h"

namespace catalogue {

// A fresh object of the class of that number; null for a number of no class.
std::unique_ptr<CMsgBase> MakeMessage(int number);

}  // namespace catalogue
