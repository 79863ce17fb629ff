// Captures reports made through moxError: the test installs a recording
// report function in Parent mode and reads back what was reported.
#pragma once

#include <string>
#include <vector>

#include "moxpx.h"

namespace moxtest {

struct Report {
  int status;
  std::string func, message, file;
  int line;
};

inline std::vector<Report>& reports() {
  static thread_local std::vector<Report> all;
  return all;
}

inline int MOX_CALL recordReport(int status, const char* funcName, const char* message,
                                 const char* file, int line) {
  reports().push_back({status, funcName ? funcName : "", message ? message : "",
                       file ? file : "", line});
  return status;
}

// While alive: Parent mode, reports recorded, status cleared.
class Capture {
 public:
  Capture() {
    previousMode_ = moxGetErrMode();
    previousFn_ = moxRedirectError(recordReport);
    moxSetErrMode(MOX_ErrorModeParent);
    moxSetErrStatus(MOX_StsNoError);
    reports().clear();
  }
  ~Capture() {
    moxRedirectError(previousFn_);
    moxSetErrMode(previousMode_);
    moxSetErrStatus(MOX_StsNoError);
  }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  const std::vector<Report>& all() const { return reports(); }
  bool empty() const { return reports().empty(); }
  // The last report (an empty one when nothing was reported).
  Report last() const { return empty() ? Report{0, "", "", "", 0} : reports().back(); }

 private:
  int previousMode_;
  MoxErrorCallBack previousFn_;
};

}  // namespace moxtest
