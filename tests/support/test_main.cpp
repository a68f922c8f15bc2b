#include "testsupport.h"

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    // Every test program works in a data folder of its own, never the user's.
    vlortest::dataDir();
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
