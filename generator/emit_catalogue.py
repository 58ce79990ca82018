"""The factory of the catalogue tool (tools/): a fresh object of any class by
its number.

    catalogue/CatalogueFactory.cpp  MakeMessage(number), through PRICEMSG_EACH_<FAMILY>

The factory is the tool's own; the message library keeps no list of its
classes. The tool reads the schema from the tables of libpricemsg_text
(emit_tables.py).
"""

from __future__ import annotations

from emit_cpp import include_line
from emit_lists import path as list_path
from emit_tables import BANNER
from schema import Schema

PATH = "catalogue/CatalogueFactory.cpp"


def source(schema: Schema) -> str:
    includes = "".join(include_line(list_path(f)) + "\n" for f in sorted(schema.families))
    cases = "".join(f"    PRICEMSG_EACH_{f.upper()}(PRICEMSG_CATALOGUE_MAKE)\n"
                    for f in schema.families)
    return (BANNER + '#include "CatalogueFactory.h"\n' + includes + """
namespace catalogue {

#define PRICEMSG_CATALOGUE_MAKE(Name, Number) \\
  case Number:                                \\
    return std::unique_ptr<CMsgBase>(new Name);

std::unique_ptr<CMsgBase> MakeMessage(int number) {
  switch (number) {
""" + cases + """  }
  return nullptr;
}

}  // namespace catalogue
""")
