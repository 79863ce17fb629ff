// The per-thread library context: status, error mode and report function.
#include <cstring>

#include "frame.h"

namespace mox {

const MoxContext contextTemplate = {0, MOX_ErrorModeLeaf, moxGuiBoxReport, {0}, {0}};

const char kOutOfMemoryText[] = "Out of memory";
const char kUnknownFaultText[] = "Bad status: unknown error";

MoxContext* context() {
  if (MoxContext* ctx = platform::contextSlot()) return ctx;
  platform::messageBox("pMoxContext", "NULL", platform::kBoxOk);
  static const char kText[] = "MOX Library error:\nBad MOX Context\nTerminating the application";
  if (platform::win32s()) {
    platform::messageBox(kText, "Win32S: Fatal Application Exit", platform::kBoxOk);
    platform::exitProcess(1);
  }
  platform::fatalExit(kText);
}

}  // namespace mox

using mox::context;

extern "C" {

MOX_API MoxContext* MOX_CALL moxUndContext(void) { return context(); }
MOX_API int MOX_CALL moxGetErrStatus(void) { return context()->status; }
MOX_API void MOX_CALL moxSetErrStatus(int status) { context()->status = status; }
MOX_API int MOX_CALL moxGetErrMode(void) { return context()->errMode; }
MOX_API void MOX_CALL moxSetErrMode(int mode) { context()->errMode = mode; }

MOX_API MoxErrorCallBack MOX_CALL moxRedirectError(MoxErrorCallBack fn) {
  MoxContext* ctx = context();
  MoxErrorCallBack previous = ctx->reportFn;
  ctx->reportFn = fn ? fn : moxGuiBoxReport;
  return previous;
}

MOX_API int MOX_CALL moxError(int status, const char* funcName, const char* message,
                              const char* file, int line) {
  MoxContext* ctx = context();
  if (status != MOX_StsBacktrace && status != MOX_StsAutotraceCall) ctx->status = status;
  if (status == MOX_StsNoError) return 0;
  return ctx->reportFn(status, funcName, message, file, line);
}

MOX_API const char* MOX_CALL moxErrorStr(int status) {
  static const char* const kTexts[] = {
      "No Error", "Backtrace", "Unknown error", "Internal error (bad state)",
      mox::kOutOfMemoryText, "Bad argument", "Unsupported function",
      "Iteration convergence failed", "Autotrace call"};
  if (status <= 0 && status >= -8) return kTexts[-status];
  MoxContext* ctx = context();
  mox::platform::format(ctx->errorText, sizeof ctx->errorText, "Unknown %s code %d",
                        status >= 0 ? "status" : "error", status);
  return ctx->errorText;
}

}  // extern "C"
