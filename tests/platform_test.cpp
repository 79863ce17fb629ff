// The platform layer's context slot.
#include <gtest/gtest.h>

#include <cstdlib>
#include <thread>

#include "frame/frame.h"
#include "moxpx.h"

#if defined(_WIN32)
#include <windows.h>
#endif

namespace {

TEST(Platform, EveryThreadHasItsOwnSlot) {
  MoxContext* mine = mox::platform::contextSlot();
  ASSERT_NE(mine, nullptr);
  EXPECT_EQ(mine, moxUndContext());
  MoxContext* other = nullptr;
  std::thread([&other] { other = mox::platform::contextSlot(); }).join();
  EXPECT_NE(other, nullptr);
  EXPECT_NE(other, mine);
}

#if defined(_WIN32)
// A thread whose context is gone (as one that existed before the library was
// loaded) ends the process on its first call.
TEST(PlatformDeathTest, AThreadWithoutAContextEndsTheProcess) {
  EXPECT_DEATH(
      {
        mox::platform::entry(DLL_THREAD_DETACH);
        moxGetErrStatus();
        std::exit(0);
      },
      "");
}
#endif

}  // namespace
