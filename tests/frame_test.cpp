// The frame: the per-thread context (status, mode, report function, status
// texts), the aligned blocks and the version record.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>

#include "capture.h"
#include "moxpx.h"

namespace {

using moxtest::Capture;
using moxtest::reports;

// A new thread starts from the template whatever another has set, and what
// it sets stays its own.
TEST(Context, EachThreadHasItsOwnContextFromTheTemplate) {
  const MoxErrorCallBack original = moxRedirectError(moxNulDevReport);
  moxSetErrMode(MOX_ErrorModeSilent);
  moxSetErrStatus(-42);
  std::thread([] {
    EXPECT_EQ(std::make_tuple(moxGetErrStatus(), moxGetErrMode()),
              std::make_tuple(int(MOX_StsNoError), int(MOX_ErrorModeLeaf)));
    MoxContext* ctx = moxUndContext();
    ASSERT_NE(ctx, nullptr);
    EXPECT_EQ(ctx->reportFn, &moxGuiBoxReport);
    for (int word : ctx->reserved) EXPECT_EQ(word, 0);
    EXPECT_EQ(ctx->errorText[0], '\0');
    moxSetErrStatus(-7), moxSetErrMode(MOX_ErrorModeParent), moxRedirectError(moxStdErrReport);
  }).join();
  EXPECT_EQ(std::make_tuple(moxGetErrStatus(), moxGetErrMode(), moxRedirectError(original)),
            std::make_tuple(-42, int(MOX_ErrorModeSilent), &moxNulDevReport));
  moxSetErrMode(MOX_ErrorModeLeaf), moxSetErrStatus(MOX_StsNoError);
  EXPECT_EQ(offsetof(MoxContext, errorText) + 80, sizeof(MoxContext));
  if (sizeof(void*) == 4) {
    EXPECT_EQ(std::make_tuple(sizeof(MoxContext), sizeof(MoxImage)), std::make_tuple(1652u, 112u));
  }
}

TEST(Context, ErrorStoresAndReportsByStatus) {
  Capture capture;
  // Modes and statuses are stored as given.
  for (int mode : {MOX_ErrorModeLeaf, MOX_ErrorModeSilent, 7, -3, MOX_ErrorModeParent}) {
    moxSetErrMode(mode);
    EXPECT_EQ(moxGetErrMode(), mode);
  }
  moxSetErrStatus(-42);
  EXPECT_EQ(std::make_tuple(moxGetErrStatus(), moxUndContext()->status), std::make_tuple(-42, -42));
  // No error: the status is cleared, nothing reported.
  EXPECT_EQ(moxError(MOX_StsNoError, "f", "m", "file", 3), 0);
  EXPECT_EQ(moxGetErrStatus(), MOX_StsNoError);
  EXPECT_TRUE(reports().empty());
  // Traces are reported but keep the stored status.
  moxSetErrStatus(MOX_StsOutOfMemory);
  for (int trace : {MOX_StsBacktrace, MOX_StsAutotraceCall}) {
    EXPECT_EQ(moxError(trace, "f", "m", "file", 3), trace);
    EXPECT_EQ(moxGetErrStatus(), MOX_StsOutOfMemory) << trace;
  }
  EXPECT_EQ(reports().size(), 2u);
  EXPECT_EQ(moxError(MOX_StsBadArgument, "moxAdd", "(x)", "moxadd", 1091), MOX_StsBadArgument);
  EXPECT_EQ(moxGetErrStatus(), MOX_StsBadArgument);
  reports().erase(reports().begin(), reports().end() - 1);
  moxtest::expectReport("moxAdd", "(x)", 1091, "moxadd");
  // A positive status is stored and reported like any other.
  moxError(12, "f", "m", "file", 1);
  EXPECT_EQ(moxGetErrStatus(), 12);
  EXPECT_EQ(reports().size(), 1u);
}

TEST(Context, StatusTexts) {
  const struct { int status; const char* text; } cases[] = {
      {0, "No Error"},          {-1, "Backtrace"},     {-2, "Unknown error"},
      {-3, "Internal error (bad state)"},              {-4, "Out of memory"},
      {-5, "Bad argument"},     {-6, "Unsupported function"},
      {-7, "Iteration convergence failed"},            {-8, "Autotrace call"},
      {1, "Unknown status code 1"},                    {-9, "Unknown error code -9"},
      {2147483647, "Unknown status code 2147483647"},
      {-2147483647 - 1, "Unknown error code -2147483648"},
  };
  for (const auto& c : cases) EXPECT_STREQ(moxErrorStr(c.status), c.text) << c.status;
  // Unknown codes are built in the thread's own buffer.
  EXPECT_EQ(moxErrorStr(99), moxUndContext()->errorText);
}

TEST(Context, RedirectReturnsThePreviousFunction) {
  const MoxErrorCallBack original = moxRedirectError(moxStdErrReport);
  EXPECT_EQ(moxRedirectError(moxNulDevReport), &moxStdErrReport);
  EXPECT_EQ(moxRedirectError(nullptr), &moxNulDevReport);
  EXPECT_EQ(moxUndContext()->reportFn, &moxGuiBoxReport);
  moxRedirectError(original);
}

// The heap block's address is kept in the word just before the pointer,
// between one pointer size and that plus 7 bytes below it.
void expectBlock(void* p, std::size_t bytes) {
  ASSERT_NE(p, nullptr);
  const auto at = reinterpret_cast<std::uintptr_t>(p);
  std::uintptr_t block;
  std::memcpy(&block, static_cast<char*>(p) - sizeof(void*), sizeof block);
  EXPECT_EQ(at % 8, 0u);
  EXPECT_TRUE(at - block >= sizeof(void*) && at - block <= sizeof(void*) + 7) << at - block;
  std::memset(p, 0xA5, bytes);  // the whole block is usable
  moxFree(p);
}

TEST(Memory, AllocatorsGiveAlignedUsableBlocksAndRefuseNegativeCounts) {
  for (int n : {0, 1, 7, 8, 1000}) {
    SCOPED_TRACE(n);
    expectBlock(moxMalloc(n), static_cast<std::size_t>(n));
    expectBlock(moxwMalloc(n), 2u * n);
    expectBlock(moxiMalloc(n), 4u * n);
    expectBlock(moxsMalloc(n), 4u * n);
    expectBlock(moxdMalloc(n), 8u * n);
  }
  EXPECT_EQ(std::make_tuple(moxMalloc(-1), moxdMalloc(-8), moxiMalloc(-2147483647 - 1)),
            std::make_tuple(nullptr, nullptr, nullptr));
  moxFree(nullptr);
}

TEST(Version, Record) {
  const MoxLibVersion* v = moxGetLibVersion();
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(std::make_tuple(v->major, v->minor, v->build, std::string(v->Name),
                            std::string(v->Version), std::string(v->InternalVersion),
                            std::string(v->BuildDate), std::string(v->CallConv),
                            moxGetLibVersion()),
            std::make_tuple(1, 3, 3, "moxpx.dll", "v1.0 Beta 3", "[1.03.03, 06/30/97]",
                            "Jul  7 1997", "DLL", v));
}

}  // namespace
