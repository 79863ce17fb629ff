// Working blocks kept per thread between calls.
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "frame.h"

namespace mox::platform {
namespace {

std::atomic<int> liveCount{0};  // kept blocks, all threads

// A thread's kept blocks, largest first.
struct Spares {
  static constexpr int kMost = 8;
  void* block[kMost];
  std::size_t size[kMost];
  int count;
};

void dropSpares(void* record) {
  auto* s = static_cast<Spares*>(record);
  for (int i = 0; i < s->count; ++i) std::free(s->block[i]);
  liveCount -= s->count;
  std::free(s);
}

Spares* spares(bool make) {
  ThreadRecords* r = threadRecords();
  if (!r) return nullptr;
  if (!r->record[kSpareRecord] && make) {
    auto* s = static_cast<Spares*>(std::calloc(1, sizeof(Spares)));
    if (!s) return nullptr;
    r->record[kSpareRecord] = s;
    r->release[kSpareRecord] = dropSpares;
  }
  return static_cast<Spares*>(r->record[kSpareRecord]);
}

}  // namespace

void* takeSpare(std::size_t bytes, std::size_t* size) {
  if (bytes == 0) bytes = 1;
  if (Spares* s = spares(false)) {
    // The smallest kept block that is large enough.
    for (int i = s->count - 1; i >= 0; --i) {
      if (s->size[i] < bytes) continue;
      void* block = s->block[i];
      *size = s->size[i];
      for (int k = i + 1; k < s->count; ++k) s->block[k - 1] = s->block[k], s->size[k - 1] = s->size[k];
      --s->count;
      --liveCount;
      return block;
    }
  }
  void* block = std::malloc(bytes);
  *size = block ? bytes : 0;
  return block;
}

void giveSpare(void* block, std::size_t size) {
  if (!block) return;
  // Small blocks come from the heap as fast as from here.
  constexpr std::size_t kKeptFrom = std::size_t(64) << 10;
  Spares* s = size >= kKeptFrom && size <= kSpareBytes ? spares(true) : nullptr;
  if (!s) return std::free(block);
  // In order, largest first; then the smallest go until the rest fit.
  int at = 0;
  while (at < s->count && s->size[at] >= size) ++at;
  if (at == Spares::kMost) return std::free(block);
  if (s->count == Spares::kMost) {
    std::free(s->block[--s->count]);
    --liveCount;
  }
  for (int k = s->count; k > at; --k) s->block[k] = s->block[k - 1], s->size[k] = s->size[k - 1];
  s->block[at] = block, s->size[at] = size;
  ++s->count;
  ++liveCount;
  std::size_t total = 0;
  for (int k = 0; k < s->count; ++k) total += s->size[k];
  while (total > kSpareBytes) {
    --s->count;
    --liveCount;
    total -= s->size[s->count];
    std::free(s->block[s->count]);
  }
}

bool growSpare(void** block, std::size_t* size, std::size_t keep, std::size_t bytes) {
  std::size_t got = 0;
  void* grown = takeSpare(bytes, &got);
  if (!grown) return false;
  if (keep) std::memcpy(grown, *block, keep);
  giveSpare(*block, *size);
  *block = grown;
  *size = got;
  return true;
}

int keptSpares() {
  const Spares* s = spares(false);
  return s ? s->count : 0;
}

int liveSpares() { return liveCount.load(); }

}  // namespace mox::platform
