// Internal interface of the library frame: the per-thread context and the
// narrow platform layer beneath it.
#pragma once

#include <cstddef>

#include "moxpx.h"

namespace mox {

// The template every new thread context is copied from.
extern const MoxContext contextTemplate;

// The calling thread's context; a thread without one ends the process.
MoxContext* context();

// Texts shared by the status table and the header fault text. The fault text
// builder hands these constants out in place of an allocated block, and
// moxFree knows them.
extern const char kOutOfMemoryText[];
extern const char kUnknownFaultText[];

// True when the processor and the system run 256-bit integer and floating
// vectors (AVX2), so kernels compiled for them may be chosen; asked once.
bool wideVectors();

}  // namespace mox

namespace mox::platform {

// Buttons and answers of the message box, with the system's values.
enum : unsigned {
  kBoxOk = 0x0, kBoxOkCancel = 0x1, kBoxYesNo = 0x4, kBoxSystemModal = 0x1000,
};
enum : int { kIdOk = 1, kIdCancel = 2, kIdYes = 6, kIdNo = 7 };

// The calling thread's context slot; null when the thread has none.
MoxContext* contextSlot();

// Records other parts of the library keep per thread (the transforms'
// engines). The platform layer calls each kept record's release when its
// thread ends, on every system, so an ended thread leaves nothing behind.
enum ThreadRecord : int { kFourierRecord, kCosineRecord, kSpareRecord, kThreadRecords };
struct ThreadRecords {
  void* record[kThreadRecords];
  void (*release[kThreadRecords])(void*);
};
// The calling thread's records (all null at first); null when the thread
// has no slot.
ThreadRecords* threadRecords();

// Working blocks kept between calls. Large blocks taken from the system and
// given back on every call are mapped and faulted in afresh each time; a
// thread keeps the blocks its calls give back (a few, up to kSpareBytes in
// all) for its next calls instead, and frees them when it ends.
constexpr std::size_t kSpareBytes = std::size_t(64) << 20;
// A block of at least `bytes` (a kept one when one is large enough), its
// size in *size; null when there is no memory. Its contents are undefined.
void* takeSpare(std::size_t bytes, std::size_t* size);
// Gives a block of `size` bytes from takeSpare back (null: nothing).
void giveSpare(void* block, std::size_t size);
// Replaces *block (of *size bytes, null at first) by one of at least
// `bytes`, its first `keep` bytes carried over, the old one given back;
// false, with *block and *size as they were, when there is no memory.
bool growSpare(void** block, std::size_t* size, std::size_t keep, std::size_t bytes);
// The blocks the calling thread keeps, and all threads keep.
int keptSpares();
int liveSpares();
// Releases and clears every kept record of a thread.
inline void releaseRecords(ThreadRecords& r) {
  for (int i = 0; i < kThreadRecords; ++i)
    if (void* kept = r.record[i]) {
      r.record[i] = nullptr;
      r.release[i](kept);
    }
}
// Shows a box and returns the button chosen.
int messageBox(const char* text, const char* caption, unsigned style);
// Ends the process through the system's fatal-exit service.
[[noreturn]] void fatalExit(const char* text);
// Ends the process with an exit code.
[[noreturn]] void exitProcess(int code);
// True on the old 16-bit-hosted subsystem (top bit of the version word).
bool win32s();
// Formats into buf (never more than size bytes, always terminated).
void format(char* buf, std::size_t size, const char* fmt, ...);

#if defined(_WIN32)
// The module entry: process and thread attach and detach (the system's
// reason codes); nonzero on success.
int entry(unsigned long reason);
#endif

}  // namespace mox::platform
