// Captures reports made through moxError: while a Capture lives the thread
// is in Parent mode, its status is clear and every report is recorded.
#pragma once

#include <string>
#include <tuple>
#include <vector>

#include "moxpx.h"

namespace moxtest {

struct Report { int status; std::string func, message, file; int line; };

inline std::vector<Report>& reports() {
  static thread_local std::vector<Report> all;
  return all;
}

// Takes the first report off the list: a bad argument from func (in file,
// when given) at line with the message (a header fault text may be given
// without its padding: then the report's is cut off).
inline void expectReport(const std::string& func, const std::string& message, int line,
                         const char* file = nullptr) {
  ASSERT_FALSE(reports().empty()) << func << " " << message;
  const Report r = reports().front();
  reports().erase(reports().begin());
  const std::string got = !message.empty() && message.back() == '\n'
                              ? r.message
                              : r.message.substr(0, r.message.find_last_not_of(" \n") + 1);
  EXPECT_EQ(std::tie(r.status, r.func, got, r.line, r.file),
            std::make_tuple(int(MOX_StsBadArgument), func, message, line, file ? file : r.file));
}

class Capture {
 public:
  Capture() : mode_(moxGetErrMode()), fn_(moxRedirectError(record)) {
    moxSetErrMode(MOX_ErrorModeParent), moxSetErrStatus(MOX_StsNoError), reports().clear();
  }
  ~Capture() { moxRedirectError(fn_), moxSetErrMode(mode_), moxSetErrStatus(MOX_StsNoError); }
  Capture(const Capture&) = delete;

 private:
  static int MOX_CALL record(int status, const char* func, const char* message, const char* file, int line) {
    reports().push_back({status, func ? func : "", message ? message : "", file ? file : "", line});
    return status;
  }
  int mode_;
  MoxErrorCallBack fn_;
};

}  // namespace moxtest
