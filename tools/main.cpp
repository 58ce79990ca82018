// pricemsg-catalogue: see catalogue.cpp.
#include <cstdio>

#include "Catalogue.h"

int main(int argc, char** argv) { return catalogue::Run(argc, argv, stdout, stderr); }
