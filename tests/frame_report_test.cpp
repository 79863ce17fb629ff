// The three report functions: exact texts, modes, buttons and exits.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "moxpx.h"

#if defined(__linux__)
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace {

const char kDepthMessage[] = "(srcImageA->depth != dstImage->depth)";
const char kDepthReport[] =
    "\nMOX Library Error: Bad argument \n\tin function [moxadd:1091]:moxAdd(): "
    "(srcImageA->depth != dstImage->depth)\n";

// What one report writes to standard error with this report function and
// mode (both put back after).
std::string stderrOf(MoxErrorCallBack fn, int mode, int status, const char* func,
                     const char* message, const char* file, int line) {
  const int oldMode = moxGetErrMode();
  const MoxErrorCallBack oldFn = moxRedirectError(fn);
  moxSetErrMode(mode);
  ::testing::internal::CaptureStderr();
  EXPECT_EQ(moxError(status, func, message, file, line), status);
  moxRedirectError(oldFn), moxSetErrMode(oldMode), moxSetErrStatus(0);
  return ::testing::internal::GetCapturedStderr();
}

TEST(Reporting, StandardErrorTextsByMode) {
  const MoxErrorCallBack err = moxStdErrReport, nul = moxNulDevReport;
  const int parent = MOX_ErrorModeParent;
  const struct {
    MoxErrorCallBack fn; int mode, status; const char *func, *message, *file; int line;
    const char* text;
  } cases[] = {
      {err, parent, -5, "moxAdd", kDepthMessage, "moxadd", 1091, kDepthReport},
      {err, parent, -1, "moxRotate", "", "moxRotat", 87,
       "\tcalled from [moxRotat:87]:moxRotate(): \n"},
      {err, parent, -1, "outer", "m", nullptr, 0, "\tcalled from:outer(): m\n"},
      {err, parent, -8, "traced", "arg", "f", 2, "\tcalled from [f:2]:traced(arg)\n"},
      {err, parent, -4, nullptr, nullptr, nullptr, 5,
       "\nMOX Library Error: Out of memory \n\tin function [:5]:<unknown>\n"},
      {err, parent, 3, "f", "m", "x", 0,
       "\nMOX Library Error: Unknown status code 3 \n\tin function [x:0]:f(): m\n"},
      {err, MOX_ErrorModeSilent, -5, "moxAdd", kDepthMessage, "moxadd", 1091, ""},
      // A mode of no known value reports but never ends the process.
      {err, 9, -5, "moxAdd", kDepthMessage, "moxadd", 1091, kDepthReport},
      {nul, parent, -5, "moxAdd", kDepthMessage, "moxadd", 1091, ""},
  };
  for (const auto& c : cases)
    EXPECT_EQ(stderrOf(c.fn, c.mode, c.status, c.func, c.message, c.file, c.line), c.text)
        << c.status << " mode " << c.mode;
  // The message box is not shown outside Leaf and Parent mode.
  const int mode = moxGetErrMode();
  for (int quiet : {MOX_ErrorModeSilent, 5}) {
    moxSetErrMode(quiet);
    EXPECT_EQ(moxGuiBoxReport(-5, "f", "m", "file", 1), -5);
  }
  moxSetErrMode(mode);
}

// Runs a Leaf-mode report in a child process whose standard error goes to a
// file, and returns that file's bytes after the child has ended with code 1.
std::string leafReport(MoxErrorCallBack fn) {
  const std::string path = ::testing::TempDir() + "moxpx_leaf_report.txt";
  std::remove(path.c_str());
  EXPECT_EXIT(
      {
        if (!std::freopen(path.c_str(), "w", stderr)) std::exit(3);
        moxSetErrMode(MOX_ErrorModeLeaf);
        moxRedirectError(fn);
        moxError(-5, "moxAdd", kDepthMessage, "moxadd", 1091);
        std::exit(2);
      },
      ::testing::ExitedWithCode(1), "");
  std::stringstream text;  // read as text: the C runtime may write CRLF line ends
  text << std::ifstream(path).rdbuf();
  return text.str();
}

TEST(ReportDeathTest, LeafModeEndsTheProcessWithCodeOne) {
  EXPECT_EQ(leafReport(moxStdErrReport),
            std::string(kDepthReport) +
                "MOX Library Error\nErrMode=MOX_ErrModeLeaf\nterminating the application");
  EXPECT_EQ(leafReport(moxNulDevReport), "");
}

#if defined(__linux__)
// The message box on a terminal: a child gets a new pseudo-terminal as its
// controlling terminal, the test answers the prompt and reads the screen.
struct BoxRun { std::string screen; int waitStatus = 0; };

BoxRun runBox(int mode, int stored, int status, const char* answer) {
  BoxRun run;
  const int master = posix_openpt(O_RDWR | O_NOCTTY);
  if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) return run;
  const std::string slave = ptsname(master);
  std::fflush(nullptr);
  const pid_t pid = fork();
  if (pid == 0) {
    setsid();
    if (open(slave.c_str(), O_RDWR) < 0) _exit(5);
    dup2(open("/dev/null", O_WRONLY), 2);
    moxSetErrMode(mode);
    moxSetErrStatus(stored);
    const int r = moxGuiBoxReport(status, "moxAdd", kDepthMessage, "moxadd", 1091);
    _exit(r == status ? 0 : 9);
  }
  char buf[512];
  bool answered = false;
  for (;;) {
    const ssize_t n = read(master, buf, sizeof buf);
    if (n <= 0) break;
    run.screen.append(buf, static_cast<std::size_t>(n));
    if (!answered && run.screen.find("] ") != std::string::npos &&
        run.screen.rfind("? [") != std::string::npos) {
      answered = true;
      if (write(master, answer, std::char_traits<char>::length(answer)) < 0) break;
    }
  }
  waitpid(pid, &run.waitStatus, 0);
  close(master);
  run.screen.erase(std::remove(run.screen.begin(), run.screen.end(), '\r'), run.screen.end());
  return run;
}

// Leaf mode asks whether to terminate, Parent mode offers to go on; a
// backtrace report shows the failure stored before it in the caption.
TEST(MessageBox, TextsButtonsAndEnds) {
  const std::string body = "[moxadd:1091]:moxAdd():\n(srcImageA->depth != dstImage->depth)\n\n";
  const struct {
    int mode, stored, status; const char* answer; std::string screen; bool ends;
  } runs[] = {
      {MOX_ErrorModeLeaf, -5, -5, "n\n",
       "\n[MOX Library Error: Bad argument]\nin function " + body +
           "ErrMode=MOX_ErrorModeLeaf\n\nTerminate the application?\nYes or No? [Y/n] n\n", false},
      {MOX_ErrorModeLeaf, -5, -5, "y\n", "", true},
      {MOX_ErrorModeParent, -4, -1, "\n",
       "\n[MOX Library Error: Out of memory]\ncalled from " + body +
           "ErrMode=MOX_ErrorModeParent\n\nContinue?\nOK or Cancel? [O/c] \n", false},
      {MOX_ErrorModeParent, -5, -8, "c\n", "called from [moxadd:1091]:\nmoxAdd((srcImageA->depth",
       true},
  };
  for (const auto& r : runs) {
    const BoxRun run = runBox(r.mode, r.stored, r.status, r.answer);
    // The whole screen; of a run that ends the process, a part.
    EXPECT_TRUE(r.ends ? run.screen.find(r.screen) != std::string::npos : run.screen == r.screen)
        << run.screen;
    EXPECT_TRUE(r.ends ? WIFSIGNALED(run.waitStatus) && WTERMSIG(run.waitStatus) == SIGABRT
                       : WIFEXITED(run.waitStatus) && WEXITSTATUS(run.waitStatus) == 0)
        << r.mode << " " << r.answer;
  }
}

TEST(MessageBoxDeathTest, WithoutATerminalTheDefaultButtonIsTaken) {
  // Leaf mode: Yes, so the process ends through the fatal exit.
  EXPECT_DEATH(
      {
        setsid();
        moxSetErrMode(MOX_ErrorModeLeaf);
        moxGuiBoxReport(-5, "f", "m", "file", 1);
      },
      "MOX Library:\nterminating the application");
  // Parent mode: OK, so the call returns.
  EXPECT_EXIT(
      {
        setsid();
        moxSetErrMode(MOX_ErrorModeParent);
        std::exit(moxGuiBoxReport(-5, "f", "m", "file", 1) == -5 ? 7 : 8);
      },
      ::testing::ExitedWithCode(7), "");
}
#endif

}  // namespace
