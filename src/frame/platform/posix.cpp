// POSIX platform layer: a thread_local context made on a thread's first call
// and freed, with the thread's kept records, when the thread ends; the message box is a prompt on the
// controlling terminal, and without a terminal the box's text goes to
// standard error and its default button (Yes, or OK) is taken, so that the
// reason of a report is never lost.
#if !defined(_WIN32)

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "../frame.h"

namespace mox::platform {
namespace {

struct ContextHolder {
  MoxContext* context = nullptr;
  ThreadRecords records{};
  ~ContextHolder() {
    releaseRecords(records);
    std::free(context);
    context = nullptr;
  }
};
thread_local ContextHolder holder;

}  // namespace

MoxContext* contextSlot() {
  if (!holder.context) {
    void* block = std::calloc(1, sizeof(MoxContext));
    if (!block) return nullptr;
    std::memcpy(block, &contextTemplate, sizeof(MoxContext));
    holder.context = static_cast<MoxContext*>(block);
  }
  return holder.context;
}

ThreadRecords* threadRecords() { return &holder.records; }

int messageBox(const char* text, const char* caption, unsigned style) {
  const unsigned buttons = style & 0xF;
  const int first = buttons == kBoxYesNo ? kIdYes : kIdOk;
  std::FILE* tty = std::fopen("/dev/tty", "r+");
  if (!tty) {
    std::fprintf(stderr, "\n[%s]\n%s\n", caption, text);
    std::fflush(stderr);
    return first;
  }
  std::fprintf(tty, "\n[%s]\n%s\n", caption, text);
  if (buttons == kBoxYesNo)
    std::fputs("Yes or No? [Y/n] ", tty);
  else if (buttons == kBoxOkCancel)
    std::fputs("OK or Cancel? [O/c] ", tty);
  else
    std::fputs("OK [Enter] ", tty);
  std::fflush(tty);
  char answer[64];
  int chosen = first;
  if (std::fgets(answer, sizeof answer, tty)) {
    const char c = answer[0];
    if (buttons == kBoxYesNo && (c == 'n' || c == 'N')) chosen = kIdNo;
    if (buttons == kBoxOkCancel && (c == 'c' || c == 'C')) chosen = kIdCancel;
  }
  std::fclose(tty);
  return chosen;
}

void fatalExit(const char* text) {
  std::fprintf(stderr, "%s\n", text);
  std::fflush(stderr);
  std::abort();
}

void exitProcess(int code) { std::exit(code); }

bool win32s() { return false; }

void format(char* buf, std::size_t size, const char* fmt, ...) {
  std::va_list args;
  va_start(args, fmt);
  std::vsnprintf(buf, size, fmt, args);
  va_end(args);
}

}  // namespace mox::platform

#endif
