#ifndef KEL_CLOCK_H
#define KEL_CLOCK_H

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include "Kel/Entity.h"

namespace Kel {

// A clock entity: its notifiees ask for onTime() at an absolute time (ActivityManager.h).
class Clock final : public EntityOf<Clock> {
 public:
  class NotifieeConst;
  // A request's place: its time, then the order requests were made in.
  using Key = std::pair<double, std::uint64_t>;

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

    const Clock* clock() const { return static_cast<const Clock*>(notifierEntity().ptr()); }

    bool requested_ = false;
    bool scheduled_ = false;
    double time_ = 0.0;
    Key key_{};
  };

  explicit Clock(const Name& name) : name_(name) {}

  NotifieeList* notifieeList() const override { return &notifiees_; }
  Name name() const override { return name_; }
  void nameIsFromBackup(const Name& name) override { name_ = name; }
  const char* fwkType() const override { return "Kel::Clock"; }

  bool idle() const { return schedule_.empty(); }
  std::size_t scheduled() const { return schedule_.size(); }
  // The earliest requested time; meaningful only when not idle.
  double nextTime() const { return schedule_.front().key.first; }

  // Returns how many ran.
  std::size_t runPass(double now) const;

 private:
  struct Request {
    Key key;
    NotifieeConst* notifiee;
  };
  void enqueue(NotifieeConst* notifiee) const;
  void dequeue(NotifieeConst* notifiee) const;
  // Moves the notifiee's request, if it is the last one, to time t at its place; false otherwise.
  bool renewLast(NotifieeConst* notifiee, double t) const;
  // The scheduled request with this key, or the schedule's end.
  std::vector<Request>::iterator find(const Key& key) const;

  Name name_;
  mutable NotifieeList notifiees_;
  // In order of key. It keeps its capacity, so a notifiee that asks again and again (the copier,
  // one chunk per pass) allocates nothing; a few requests at a time are the rule, so a sorted
  // vector beats a tree.
  mutable std::vector<Request> schedule_;
  mutable std::uint64_t sequence_ = 0;
};

}  // namespace Kel

#endif
