// The three report functions a context can hold.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "frame.h"

namespace {

const char kTerminating[] = "MOX Library:\nterminating the application";

[[noreturn]] void endProcess() {
  using namespace mox::platform;
  if (win32s()) {
    messageBox(kTerminating, "Win32S: Application exit", kBoxSystemModal);
    exitProcess(1);
  }
  fatalExit(kTerminating);
}

std::size_t length(const char* s) { return s ? std::strlen(s) : 0; }

}  // namespace

extern "C" {

MOX_API int MOX_CALL moxGuiBoxReport(int status, const char* funcName, const char* message,
                                     const char* file, int line) {
  using namespace mox::platform;
  const int mode = moxGetErrMode();
  if (mode == MOX_ErrorModeSilent) return status;
  if (!funcName) funcName = "<unknown>";
  if (!message) message = "";
  if (!file) file = "";
  if (line < 0) line = 0;
  const char* tail = mode == MOX_ErrorModeLeaf
                         ? "\n\nErrMode=MOX_ErrorModeLeaf\n\nTerminate the application?"
                     : mode == MOX_ErrorModeParent ? "\n\nErrMode=MOX_ErrorModeParent\n\nContinue?"
                                                   : "";
  const char* body = status == MOX_StsBacktrace      ? "called from [%s:%d]:%s():\n%s%s"
                     : status == MOX_StsAutotraceCall ? "called from [%s:%d]:\n%s(%s)%s"
                                                      : "in function [%s:%d]:%s():\n%s%s";
  // The message plus 200 bytes holds every report of the library's own; a
  // caller's long names get the room they need.
  const std::size_t size =
      length(message) + 200 + length(file) + length(funcName) + std::strlen(tail);
  std::unique_ptr<char[]> text(new (std::nothrow) char[size]);
  if (!text) return status;
  format(text.get(), size, body, file, line, funcName, message, tail);
  char caption[128];
  format(caption, sizeof caption, "MOX Library Error: %s", moxErrorStr(moxGetErrStatus()));

  if (mode == MOX_ErrorModeParent) {
    if (messageBox(text.get(), caption, kBoxSystemModal | kBoxOkCancel) == kIdCancel) {
      text.reset();
      endProcess();
    }
  } else if (mode == MOX_ErrorModeLeaf) {
    if (messageBox(text.get(), caption, kBoxSystemModal | kBoxYesNo) == kIdYes) {
      text.reset();
      endProcess();
    }
  }
  return status;
}

MOX_API int MOX_CALL moxStdErrReport(int status, const char* funcName, const char* message,
                                     const char* file, int line) {
  const int mode = moxGetErrMode();
  if (mode == MOX_ErrorModeSilent) return status;
  if (status != MOX_StsBacktrace && status != MOX_StsAutotraceCall)
    std::fprintf(stderr, "\nMOX Library Error: %s \n\tin function", moxErrorStr(status));
  else
    std::fprintf(stderr, "\tcalled from");
  if (line > 0 || file) std::fprintf(stderr, " [%s:%d]", file ? file : "", line);
  std::fprintf(stderr, ":%s", funcName ? funcName : "<unknown>");
  if (message) std::fprintf(stderr, status == MOX_StsAutotraceCall ? "(%s)" : "(): %s", message);
  std::fprintf(stderr, "\n");
  std::fflush(stderr);
  if (mode == MOX_ErrorModeLeaf) {
    std::fprintf(stderr, "MOX Library Error\nErrMode=MOX_ErrModeLeaf\nterminating the application");
    std::fflush(stderr);
    std::exit(1);
  }
  return status;
}

MOX_API int MOX_CALL moxNulDevReport(int status, const char*, const char*, const char*, int) {
  if (moxGetErrMode() == MOX_ErrorModeLeaf) std::exit(1);
  return status;
}

}  // extern "C"
