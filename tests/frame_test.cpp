// The frame: the per-thread context (status, mode, report function, status
// texts), the aligned blocks, the version record, and the three report
// functions (exact texts, modes, buttons and exits).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <sstream>
#include <thread>

#include "capture.h"
#include "moxpx.h"

#if defined(__linux__)
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

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
    MoxContext* ctx = moxUndContext();
    ASSERT_NE(ctx, nullptr);
    EXPECT_EQ(std::make_tuple(moxGetErrStatus(), moxGetErrMode(), ctx->errorText[0]),
              std::make_tuple(int(MOX_StsNoError), int(MOX_ErrorModeLeaf), '\0'));
    for (int word : ctx->reserved) EXPECT_EQ(word, 0);
    // A redirection gives back the function before it; null brings back the box.
    EXPECT_EQ(moxRedirectError(moxNulDevReport), &moxGuiBoxReport);
    EXPECT_EQ(moxRedirectError(nullptr), &moxNulDevReport);
    EXPECT_EQ(ctx->reportFn, &moxGuiBoxReport);
    moxSetErrStatus(-7), moxSetErrMode(MOX_ErrorModeParent), moxRedirectError(moxStdErrReport);
  }).join();
  EXPECT_EQ(std::make_tuple(moxGetErrStatus(), moxGetErrMode(), moxRedirectError(original)),
            std::make_tuple(-42, int(MOX_ErrorModeSilent), &moxNulDevReport));
  moxSetErrMode(MOX_ErrorModeLeaf), moxSetErrStatus(MOX_StsNoError);
  EXPECT_EQ(offsetof(MoxContext, errorText) + 80, sizeof(MoxContext));
  if (sizeof(void*) == 4) { EXPECT_EQ(std::make_tuple(sizeof(MoxContext), sizeof(MoxImage)), std::make_tuple(1652u, 112u)); }
}

TEST(Context, ErrorStoresReportsAndNamesByStatus) {
  Capture capture;
  // Modes and statuses are stored as given.
  for (int mode : {MOX_ErrorModeLeaf, MOX_ErrorModeSilent, 7, -3, MOX_ErrorModeParent})
    EXPECT_EQ((moxSetErrMode(mode), moxGetErrMode()), mode);
  moxSetErrStatus(-42);
  EXPECT_EQ(std::make_tuple(moxGetErrStatus(), moxUndContext()->status), std::make_tuple(-42, -42));
  // No error clears the status unreported; traces are reported but keep the
  // stored status; any other status, positive too, is stored and reported.
  const struct { int stored, status, after; std::size_t reported; } cases[] = {
      {-42, MOX_StsNoError, MOX_StsNoError, 0}, {MOX_StsOutOfMemory, MOX_StsBacktrace, MOX_StsOutOfMemory, 1},
      {MOX_StsOutOfMemory, MOX_StsAutotraceCall, MOX_StsOutOfMemory, 1}, {0, 12, 12, 1},
      {0, MOX_StsBadArgument, MOX_StsBadArgument, 1}};
  for (const auto& c : cases) {
    reports().clear();
    moxSetErrStatus(c.stored);
    EXPECT_EQ(moxError(c.status, "moxAdd", "(x)", "moxadd", 1091), c.status);
    EXPECT_EQ(std::make_tuple(moxGetErrStatus(), reports().size()), std::make_tuple(c.after, c.reported)) << c.status;
  }
  moxtest::expectReport("moxAdd", "(x)", 1091, "moxadd");
  const struct { int status; const char* text; } texts[] = {
      {0, "No Error"}, {-1, "Backtrace"}, {-2, "Unknown error"}, {-3, "Internal error (bad state)"},
      {-4, "Out of memory"}, {-5, "Bad argument"}, {-6, "Unsupported function"}, {-7, "Iteration convergence failed"},
      {-8, "Autotrace call"}, {1, "Unknown status code 1"}, {-9, "Unknown error code -9"},
      {2147483647, "Unknown status code 2147483647"}, {-2147483647 - 1, "Unknown error code -2147483648"}};
  for (const auto& c : texts) EXPECT_STREQ(moxErrorStr(c.status), c.text) << c.status;
  // Unknown codes are built in the thread's own buffer.
  EXPECT_EQ(moxErrorStr(99), moxUndContext()->errorText);
}

// The heap block's address is kept in the word just before the pointer,
// between one pointer size and that plus 7 bytes below it; the whole block
// is usable.
TEST(Memory, AllocatorsGiveAlignedUsableBlocksAndRefuseNegativeCounts) {
  for (int n : {0, 1, 7, 1000}) {
    void* blocks[] = {moxMalloc(n), moxwMalloc(n), moxiMalloc(n), moxsMalloc(n), moxdMalloc(n)};
    for (std::size_t i = 0, unit[] = {1, 2, 4, 4, 8}; i < 5; ++i) {
      const auto at = reinterpret_cast<std::uintptr_t>(blocks[i]);
      std::uintptr_t block;
      std::memcpy(&block, static_cast<char*>(blocks[i]) - sizeof(void*), sizeof block);
      EXPECT_TRUE(at % 8 == 0 && at - block >= sizeof(void*) && at - block <= sizeof(void*) + 7) << n << " " << i;
      std::memset(blocks[i], 0xA5, unit[i] * std::size_t(n));
      moxFree(blocks[i]);
    }
  }
  EXPECT_EQ(std::make_tuple(moxMalloc(-1), moxdMalloc(-8), moxiMalloc(-2147483647 - 1)),
            std::make_tuple(nullptr, nullptr, nullptr));
  moxFree(nullptr);
}

TEST(Version, Record) {
  const MoxLibVersion* v = moxGetLibVersion();
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(std::make_tuple(v->major, v->minor, v->build, std::string(v->Name), std::string(v->Version),
                            std::string(v->InternalVersion), std::string(v->BuildDate), std::string(v->CallConv),
                            moxGetLibVersion()),
            std::make_tuple(1, 3, 3, "moxpx.dll", "v1.0 Beta 3", "[1.03.03, 06/30/97]", "Jul  7 1997", "DLL", v));
}

const char kDepthMessage[] = "(srcImageA->depth != dstImage->depth)";
const char kDepthReport[] =
    "\nMOX Library Error: Bad argument \n\tin function [moxadd:1091]:moxAdd(): (srcImageA->depth != dstImage->depth)\n";

// What one report writes to standard error with each report function and mode.
TEST(Reporting, StandardErrorTextsByMode) {
  const MoxErrorCallBack err = moxStdErrReport, nul = moxNulDevReport;
  const int parent = MOX_ErrorModeParent;
  const struct {
    MoxErrorCallBack fn; int mode, status; const char *func, *message, *file; int line; const char* text;
  } cases[] = {
      {err, parent, -5, "moxAdd", kDepthMessage, "moxadd", 1091, kDepthReport},
      {err, parent, -1, "moxRotate", "", "moxRotat", 87, "\tcalled from [moxRotat:87]:moxRotate(): \n"},
      {err, parent, -1, "outer", "m", nullptr, 0, "\tcalled from:outer(): m\n"},
      {err, parent, -8, "traced", "arg", "f", 2, "\tcalled from [f:2]:traced(arg)\n"},
      {err, parent, -4, nullptr, nullptr, nullptr, 5, "\nMOX Library Error: Out of memory \n\tin function [:5]:<unknown>\n"},
      {err, parent, 3, "f", "m", "x", 0, "\nMOX Library Error: Unknown status code 3 \n\tin function [x:0]:f(): m\n"},
      {err, MOX_ErrorModeSilent, -5, "moxAdd", kDepthMessage, "moxadd", 1091, ""},
      // A mode of no known value reports but never ends the process.
      {err, 9, -5, "moxAdd", kDepthMessage, "moxadd", 1091, kDepthReport},
      {nul, parent, -5, "moxAdd", kDepthMessage, "moxadd", 1091, ""}};
  const int mode = moxGetErrMode();
  const MoxErrorCallBack fn = moxRedirectError(nullptr);
  for (const auto& c : cases) {
    moxRedirectError(c.fn), moxSetErrMode(c.mode);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(moxError(c.status, c.func, c.message, c.file, c.line), c.status);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(), c.text) << c.status << " " << c.mode;
  }
  // The message box is not shown outside Leaf and Parent mode.
  for (int quiet : {MOX_ErrorModeSilent, 5}) EXPECT_EQ((moxSetErrMode(quiet), moxGuiBoxReport(-5, "f", "m", "file", 1)), -5);
  moxRedirectError(fn), moxSetErrMode(mode), moxSetErrStatus(0);
}

// Leaf mode ends the process with code 1 after the report (here into a file).
TEST(ReportDeathTest, LeafModeEndsTheProcessWithCodeOne) {
  const std::string path = ::testing::TempDir() + "moxpx_leaf_report.txt";
  const struct { MoxErrorCallBack fn; std::string text; } runs[] = {
      {moxStdErrReport, std::string(kDepthReport) + "MOX Library Error\nErrMode=MOX_ErrModeLeaf\nterminating the application"},
      {moxNulDevReport, ""}};
  for (const auto& r : runs) {
    std::remove(path.c_str());
    EXPECT_EXIT(
        {
          if (!std::freopen(path.c_str(), "w", stderr)) std::exit(3);
          (moxSetErrMode(MOX_ErrorModeLeaf), moxRedirectError(r.fn));
          moxError(-5, "moxAdd", kDepthMessage, "moxadd", 1091);
          std::exit(2);
        },
        ::testing::ExitedWithCode(1), "");
    std::stringstream text;  // read as text: the C runtime may write CRLF line ends
    text << std::ifstream(path).rdbuf();
    EXPECT_EQ(text.str(), r.text);
  }
}

#if defined(__linux__)
// The message box on a terminal (a child's new pseudo-terminal, whose
// prompt the test answers): Leaf mode asks whether to terminate, Parent mode
// offers to go on; a backtrace report shows the failure stored before it in
// the caption.
TEST(MessageBox, TextsButtonsAndEnds) {
  const std::string body = "[moxadd:1091]:moxAdd():\n(srcImageA->depth != dstImage->depth)\n\n";
  const struct { int mode, stored, status; const char* answer; std::string screen; bool ends; } runs[] = {
      {MOX_ErrorModeLeaf, -5, -5, "n\n",
       "\n[MOX Library Error: Bad argument]\nin function " + body +
           "ErrMode=MOX_ErrorModeLeaf\n\nTerminate the application?\nYes or No? [Y/n] n\n", false},
      {MOX_ErrorModeLeaf, -5, -5, "y\n", "", true},
      {MOX_ErrorModeParent, -4, -1, "\n",
       "\n[MOX Library Error: Out of memory]\ncalled from " + body +
           "ErrMode=MOX_ErrorModeParent\n\nContinue?\nOK or Cancel? [O/c] \n", false},
      {MOX_ErrorModeParent, -5, -8, "c\n", "called from [moxadd:1091]:\nmoxAdd((srcImageA->depth", true}};
  for (const auto& r : runs) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_TRUE(master >= 0 && grantpt(master) == 0 && unlockpt(master) == 0);
    const std::string slave = ptsname(master);
    std::fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
      setsid();
      if (open(slave.c_str(), O_RDWR) < 0) _exit(5);
      dup2(open("/dev/null", O_WRONLY), 2);
      moxSetErrMode(r.mode), moxSetErrStatus(r.stored);
      _exit(moxGuiBoxReport(r.status, "moxAdd", kDepthMessage, "moxadd", 1091) == r.status ? 0 : 9);
    }
    std::string screen;
    char buf[512];
    bool answered = false;
    for (ssize_t n; (n = read(master, buf, sizeof buf)) > 0;) {
      screen.append(buf, static_cast<std::size_t>(n));
      if (!answered && screen.find("] ") != std::string::npos && screen.rfind("? [") != std::string::npos) {
        answered = true;
        if (write(master, r.answer, std::strlen(r.answer)) < 0) break;
      }
    }
    int status = 0;
    waitpid(pid, &status, 0);
    close(master);
    screen.erase(std::remove(screen.begin(), screen.end(), '\r'), screen.end());
    // The whole screen; of a run that ends the process, a part.
    EXPECT_TRUE(r.ends ? screen.find(r.screen) != std::string::npos : screen == r.screen) << screen;
    EXPECT_TRUE(r.ends ? WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT : WIFEXITED(status) && WEXITSTATUS(status) == 0)
        << r.mode << " " << r.answer;
  }
}

// Without a terminal the default button is taken after the box's text has
// gone to standard error: Yes in Leaf mode, so the process ends through the
// fatal exit; OK in Parent mode, so the call returns.
TEST(MessageBoxDeathTest, WithoutATerminalTheDefaultButtonIsTaken) {
  const struct { int mode; bool (*ended)(int); const char* text; } runs[] = {
      {MOX_ErrorModeLeaf, [](int s) { return WIFSIGNALED(s) && WTERMSIG(s) == SIGABRT; },
       "\\[MOX Library Error: Bad argument\\]\nin function \\[file:1\\]:f\\(\\):\nm\n\nErrMode=MOX_ErrorModeLeaf\n\n"
       "Terminate the application\\?\nMOX Library:\nterminating the application"},
      {MOX_ErrorModeParent, [](int s) { return WIFEXITED(s) && WEXITSTATUS(s) == 7; },
       "in function \\[file:1\\]:f\\(\\):\nm\n\nErrMode=MOX_ErrorModeParent"}};
  for (const auto& r : runs)
    EXPECT_EXIT(
        {
          (setsid(), moxSetErrMode(r.mode), moxSetErrStatus(-5));
          std::exit(moxGuiBoxReport(-5, "f", "m", "file", 1) == -5 ? 7 : 8);
        },
        r.ended, r.text);
}
#endif

}  // namespace
