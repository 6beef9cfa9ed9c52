#ifndef KEL_CLOCK_H
#define KEL_CLOCK_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "Kel/Entity.h"

namespace Kel {

// A clock entity: its notifiees ask for onTime() at an absolute time (ActivityManager.h).
class Clock final : public EntityOf<Clock> {
 public:
  class NotifieeConst;
  using Key = std::pair<double, std::uint64_t>;
  using Schedule = std::map<Key, NotifieeConst*>;

  class NotifieeConst : public NotifieeConstOf<Clock> {
   public:
    void timeMinIs(double t);
    bool timeRequested() const { return requested_; }
    double timeMin() const { return time_; }
    virtual void onTime() {}

   protected:
    ~NotifieeConst() override;
    void notifieeListMembershipIs(bool inList) override;

   private:
    friend class Clock;
    void cancel();

    bool requested_ = false;
    bool scheduled_ = false;
    double time_ = 0.0;
    Key key_{};
    // The schedule's node of this notifiee while it is not scheduled: re-arming reuses it, so a
    // notifiee that asks again and again (the copier, one chunk per pass) allocates nothing.
    Schedule::node_type spare_;
  };

  explicit Clock(const Name& name) : name_(name) {}

  NotifieeList* notifieeList() const override { return &notifiees_; }
  Name name() const override { return name_; }
  void nameIsFromBackup(const Name& name) override { name_ = name; }
  const char* fwkType() const override { return "Kel::Clock"; }

  bool idle() const { return schedule_.empty(); }
  std::size_t scheduled() const { return schedule_.size(); }
  // The earliest requested time; meaningful only when not idle.
  double nextTime() const { return schedule_.begin()->first.first; }

  // Returns how many ran.
  std::size_t runPass(double now) const;

 private:
  void enqueue(NotifieeConst* notifiee) const;
  void dequeue(NotifieeConst* notifiee) const;

  Name name_;
  mutable NotifieeList notifiees_;
  mutable Schedule schedule_;
  mutable std::vector<Key> due_;
  mutable std::uint64_t sequence_ = 0;
};

}  // namespace Kel

#endif
