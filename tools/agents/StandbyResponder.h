#ifndef MORVIK_AGENTS_STANDBYRESPONDER_H
#define MORVIK_AGENTS_STANDBYRESPONDER_H

#include <cstddef>

#include "Kel/Clock.h"
#include "Kel/Ptr.h"
#include "Kel/Types.h"
#include "Morvik/AuditRequest.h"
#include "Morvik/AuditStatus.h"

namespace MorvikAgents {

// Plays the standby supervisor's side of the audit handshake: when the active side advances
// auditTrigger it checksums its own copy of the same bytes with the same fold, then publishes
// standbyChecksum, checksumResult (0 when equal), resultId, and advances resyncTrigger.
// It can be told to stay silent, to answer late, or to lie, so tests reach every branch.
class StandbyResponder {
 public:
  enum class Mode { answer, silent, late, lie };

  // `copyBase`/`copySize`: the standby's own copy of the audited region (offset 0 of it is offset
  // 0 of the active side's local memory).
  StandbyResponder(const Kel::Ptr<Morvik::AuditRequest>& request,
                   const Kel::Ptr<Morvik::AuditStatus>& status, U64 copyBase, U32 copySize);
  ~StandbyResponder();
  StandbyResponder(const StandbyResponder&) = delete;
  StandbyResponder& operator=(const StandbyResponder&) = delete;

  void modeIs(Mode mode) { mode_ = mode; }
  Mode mode() const { return mode_; }
  // How long a late answer takes, in seconds of framework time. Every request gets its own answer,
  // in order, however many are on their way.
  void lateDelayIs(double seconds) { lateDelay_ = seconds; }
  void copyIs(U64 copyBase, U32 copySize) {
    copyBase_ = copyBase;
    copySize_ = copySize;
  }

  U64 checksumOfCopy() const;
  U32 triggersSeen() const { return triggersSeen_; }
  U32 answersGiven() const { return answersGiven_; }
  std::size_t answersPending() const;

 private:
  class RequestReactor;
  class LateClock;
  void onTrigger();
  void publish(U64 checksum, U32 requestId, U64 activeChecksum);

  Kel::Ptr<Morvik::AuditRequest> request_;
  Kel::Ptr<Morvik::AuditStatus> status_;
  U64 copyBase_;
  U32 copySize_;
  Mode mode_ = Mode::answer;
  double lateDelay_ = 30.0;
  U32 triggersSeen_ = 0;
  U32 answersGiven_ = 0;
  Kel::Ptr<RequestReactor> reactor_;
  Kel::Ptr<LateClock> lateClock_;
};

}  // namespace MorvikAgents

#endif
