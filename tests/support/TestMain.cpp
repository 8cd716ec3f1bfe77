#include <gtest/gtest.h>

#include "libfilter/Siblings.h"

int main(int argc, char** argv) {
    testing::InitGoogleTest(&argc, argv);
    // Reports are expected by the hundred here; keep the log for the tests that read it.
    GetLogger()->SetLevel(LOG_LEVEL_OFF);
    return RUN_ALL_TESTS();
}
