// The tests with datagrams run in a network that nobody else sees.
#include <gtest/gtest.h>

#include "NetLab.h"

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  if (!testing::GTEST_FLAG(list_tests)) zelsim::test::EnterPrivateNetwork();
  return RUN_ALL_TESTS();
}
