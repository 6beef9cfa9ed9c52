// Call-site descriptors, block timing and per-thread trace files.
#include <gtest/gtest.h>

#include <cstdint>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "Tralux/Tralux.h"

namespace {

using Tralux::MsgDesc;

// Finishing hands out one fresh id, once; a piece added after that aborts.
TEST(TraluxMsgDescDeathTest, FinishStoresOneFreshIdOnceAndLatePiecesAbort) {
  std::uint32_t firstId = 0, secondId = 0;
  MsgDesc first(nullptr, &firstId, "MorvikLib", 42, true);
  first << "TraluxTest" << std::string_view(" sh") << "ared";
  EXPECT_EQ(firstId, 0u);
  first.finish();
  const std::uint32_t id = firstId;
  firstId = 0;
  first.finish();
  EXPECT_NE(id, 0u);
  EXPECT_EQ(firstId, 0u) << "finishing again stores nothing";
  EXPECT_EQ(first.text(), "TraluxTest shared");
  EXPECT_DEATH(first << "late", "Tralux assertion failed: !finished\\(\\)");
  MsgDesc second(nullptr, &secondId, "MorvikLib", 43, true);
  second.finish();
  EXPECT_NE(secondId, 0u);
  EXPECT_NE(secondId, id);
}

int timed = 0;
const MsgDesc* timedDesc = nullptr;

TEST(TraluxBlockTimer, HandsEveryExitToTheRecorderWhileEnabled) {
  std::uint32_t id = 0;
  MsgDesc desc(nullptr, &id, "Tralux_test", 1, true);
  MsgDesc disabled(nullptr, &id, "Tralux_test", 2, false);
  MsgDesc::recorderIs([](const MsgDesc& site, std::uint64_t) noexcept {
    ++timed;
    timedDesc = &site;
  });
  for (int run = 0; run < 3; ++run) Tralux::BlockTimer timer(desc);
  EXPECT_THROW(
      {
        Tralux::BlockTimer timer(desc);
        throw std::runtime_error("leaving by exception");
      },
      std::runtime_error);
  { Tralux::BlockTimer timer(disabled); }
  EXPECT_EQ(timed, 4);
  EXPECT_EQ(timedDesc, &desc);
  MsgDesc::recorderIs(nullptr);
  { Tralux::BlockTimer timer(desc); }
  EXPECT_EQ(timed, 4);
}

TEST(TraluxTraceHandle, EachThreadHasAFileOfItsOwn) {
  Tralux::TraceHandle& handle = Tralux::defaultTraluxHandle();
  Tralux::TraceFile* mine = handle.mtTraceFile();
  EXPECT_EQ(handle.mtTraceFile(), mine);
  EXPECT_EQ(&Tralux::defaultTraluxHandle(), &handle);
  Tralux::TraceFile* other = nullptr;
  std::thread([&] { other = handle.mtTraceFile(); }).join();
  EXPECT_NE(other, nullptr);
  EXPECT_NE(other, mine);
}

}  // namespace
