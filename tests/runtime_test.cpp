#include <gtest/gtest.h>
TEST(Runtime, Placeholder) {}
