#include <gtest/gtest.h>

#include "moxpx.h"

TEST(Context, DefaultsOfANewThread) {
  EXPECT_EQ(moxGetErrStatus(), 0);
}
