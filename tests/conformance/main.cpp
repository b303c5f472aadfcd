// The Windows conformance program's entry. Its cases check Windows (or Wine) itself, so there
// is no machine root to prepare.
#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
