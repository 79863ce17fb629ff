// The aligned blocks and the version record.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>

#include "moxpx.h"

namespace {

// The heap block's address is kept in the word just before the pointer,
// between one pointer size and that plus 7 bytes below it.
void expectBlock(void* p, std::size_t bytes) {
  ASSERT_NE(p, nullptr);
  const auto at = reinterpret_cast<std::uintptr_t>(p);
  EXPECT_EQ(at % 8, 0u);
  std::uintptr_t block;
  std::memcpy(&block, static_cast<char*>(p) - sizeof(void*), sizeof block);
  EXPECT_GE(at - block, sizeof(void*));
  EXPECT_LE(at - block, sizeof(void*) + 7);
  std::memset(p, 0xA5, bytes);  // the whole block is usable
  moxFree(p);
}

TEST(Memory, AllocatorsGiveAlignedUsableBlocks) {
  for (int n : {0, 1, 7, 8, 1000}) {
    SCOPED_TRACE(n);
    expectBlock(moxMalloc(n), static_cast<std::size_t>(n));
    expectBlock(moxwMalloc(n), 2u * n);
    expectBlock(moxiMalloc(n), 4u * n);
    expectBlock(moxsMalloc(n), 4u * n);
    expectBlock(moxdMalloc(n), 8u * n);
  }
}

TEST(Memory, RefusesNegativeCountsAndIgnoresNull) {
  EXPECT_EQ(moxMalloc(-1), nullptr);
  EXPECT_EQ(moxdMalloc(-8), nullptr);
  EXPECT_EQ(moxiMalloc(-2147483647 - 1), nullptr);
  moxFree(nullptr);
}

TEST(Version, Record) {
  const MoxLibVersion* v = moxGetLibVersion();
  ASSERT_NE(v, nullptr);
  EXPECT_EQ(v->major, 1);
  EXPECT_EQ(v->minor, 3);
  EXPECT_EQ(v->build, 3);
  EXPECT_STREQ(v->Name, "moxpx.dll");
  EXPECT_STREQ(v->Version, "v1.0 Beta 3");
  EXPECT_STREQ(v->InternalVersion, "[1.03.03, 06/30/97]");
  EXPECT_STREQ(v->BuildDate, "Jul  7 1997");
  EXPECT_STREQ(v->CallConv, "DLL");
  EXPECT_EQ(moxGetLibVersion(), v);
}

}  // namespace
