#include "support/KelTestWatcher.h"

#include "Kel/Allocate.h"

namespace KelTest {

Kel::Ptr<GaugeWatcher> GaugeWatcher::watching(const Kel::Ptr<Gauge>& gauge, std::string tag,
                                              Journal* journal) {
  Kel::Ptr<GaugeWatcher> w = Kel::allocate<GaugeWatcher>(std::move(tag), journal);
  w->notifierIs(gauge);
  w->isRegisteredNotifieeIs(true);
  return w;
}

GaugeWatcher::~GaugeWatcher() {
  note("~" + tag_);
}

void GaugeWatcher::note(const std::string& what) {
  if (journal_) journal_->push_back(what);
}

void GaugeWatcher::onLevel() {
  ++levelCalls_;
  U32 level = notifier() ? notifier()->level() : 0;
  levelsSeen_.push_back(level);
  note(tag_ + ":level=" + std::to_string(level));
  if (action_) {
    std::function<void()> action = std::move(action_);
    action_ = nullptr;
    action();
  }
}

void GaugeWatcher::onLabel() {
  ++labelCalls_;
  note(tag_ + ":label");
}

void GaugeWatcher::onZeroReferences() {
  ++zeroCalls_;
  note(tag_ + ":zero");
}

}  // namespace KelTest
