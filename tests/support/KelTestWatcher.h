#ifndef TESTS_SUPPORT_KELTESTWATCHER_H
#define TESTS_SUPPORT_KELTESTWATCHER_H

#include <functional>
#include <string>
#include <vector>

#include "Kel/Ptr.h"
#include "support/KelTestEntity.h"

namespace KelTest {

// Records every handler call in a shared journal ("w1:level=7", "w1:zero", "~w1") and runs an
// optional action from inside onLevel, so tests can change the list while it is being visited.
class GaugeWatcher : public Gauge::NotifieeConst {
 public:
  using Journal = std::vector<std::string>;

  GaugeWatcher(std::string tag, Journal* journal) : tag_(std::move(tag)), journal_(journal) {}

  // Allocated, pointed at `gauge` and registered, in that order.
  static Kel::Ptr<GaugeWatcher> watching(const Kel::Ptr<Gauge>& gauge, std::string tag,
                                         Journal* journal);

  int levelCalls() const { return levelCalls_; }
  int labelCalls() const { return labelCalls_; }
  int zeroCalls() const { return zeroCalls_; }
  const std::vector<U32>& levelsSeen() const { return levelsSeen_; }
  const std::string& tag() const { return tag_; }

  // Runs once, on the next onLevel, then is forgotten (so captured pointers are let go).
  void onNextLevel(std::function<void()> action) { action_ = std::move(action); }

  void onLevel() override;
  void onLabel() override;
  void onZeroReferences() override;

 protected:
  ~GaugeWatcher() override;

 private:
  void note(const std::string& what);

  std::string tag_;
  Journal* journal_;
  int levelCalls_ = 0;
  int labelCalls_ = 0;
  int zeroCalls_ = 0;
  std::vector<U32> levelsSeen_;
  std::function<void()> action_;
};

}  // namespace KelTest

#endif
