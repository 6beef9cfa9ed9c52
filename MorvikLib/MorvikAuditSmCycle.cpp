// One audit step, and the reaction to the standby's verdict.
#include "Kel/Assert.h"
#include "Kel/Log.h"
#include "Morvik/Checksum.h"
#include "MorvikLib/Library.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "MorvikLib/Trace.h"

namespace MorvikLib {

namespace {
constexpr const char* kSigAudit = "void MorvikLib::MorvikAuditSm::auditMemory()";
constexpr const char* kSigResync = "void MorvikLib::MorvikAuditSm::handleAuditResync()";
}  // namespace

void MorvikAuditSm::auditMemory() {
  MorvikMemory& memory = *morvikMemory_;
  if (!memory.localMemoryReady()) {
    MORVIK_TRACE(0, "auditMemory") << kSigAudit << " localMemory not ready ";
    return;
  }
  if (!memory.remoteMemoryReady()) {
    if (morvikManifest_->fixedSystem()) return;
    MORVIK_TRACE(0, "auditMemory") << kSigAudit << " remoteMemory not ready ";
    return;
  }
  if (!auditEnabled_) {
    MORVIK_TRACE(0, "auditMemory") << kSigAudit << " auditEnable is false";
    return;
  }
  if (memory.remoteCopyPending()) {
    MORVIK_TRACE(0, "auditMemory") << kSigAudit << " remoteCopyPending, wait till done";
    return;
  }
  KEL_ASSERT_IN(auditRequest(), kSigAudit);
  U32 resultId = auditStatus()->resultId();
  U32 requestId = auditRequest_->requestId();
  if (resultId != requestId) {
    MORVIK_TRACE(0, "auditMemory")
        << kSigAudit << " standby result not yet ready"
        << " resultId " << resultId << " requestId " << requestId << " retry " << resultRetryCount_
        << " interval " << auditInterval_;
    resultRetryCountInc(1);
    // An equality test, deliberately: a maximum of 0 never forces a resync.
    if (resultRetryCount_ != resultRetryCountMax_) return;
    MORVIK_TRACE(0, "auditMemory")
        << kSigAudit << " retry failed " << resultRetryCountMax_ << " times, now doSync ";
    memory.doSync();
  }
  // A new cycle. The trigger is the last write: the standby reacts to it and finds everything
  // else already in place.
  resultRetryCount_ = 0;
  memory.doFlushWithRead();
  U64 checksum = computeChecksum();
  auditRequest_->activeChecksumIs(checksum);
  auditRequest_->activeChecksumTwosCompIs(Morvik::twosComplement(checksum));
  auditRequest_->remoteMemoryVersionIs(memory.remoteMemoryVersion());
  auditRequest_->requestIdInc(1);
  memory.ignoreChecksumIs(false);
  MORVIK_TRACE(5, "auditMemory") << kSigAudit << " trigger audit on peer"
                                 << " resultId " << auditStatus()->resultId() << " requestId "
                                 << auditRequest_->requestId() << " activeChecksum "
                                 << auditRequest_->activeChecksum();
  auditRequest_->auditTriggerInc(1);
}

U64 MorvikAuditSm::computeChecksum() {
  const MemoryMapping& local = morvikMemory_->localMemory();
  return Morvik::auditChecksum(*auditRequest_, local.vaddr(), local.size());
}

void MorvikAuditSm::handleAuditResync() {
  KEL_ASSERT_IN(morvikMemory(), kSigResync);
  U32 requestId = auditRequest_->requestId();
  Kel::Ptr<Morvik::AuditStatus const> status = auditStatus();
  U32 resultId = status->resultId();
  // The order of these tests is the rule: the ignore flag wins, a match is reported before
  // identities are compared, and only a mismatch of the current cycle resyncs.
  if (morvikMemory_->ignoreChecksum()) {
    MORVIK_TRACE(0, "handleAuditResync") << kSigResync << " checksum failed, but ignoring ";
    return;
  }
  if (status->checksumResult() == 0) {
    MORVIK_TRACE(0, "handleAuditResync") << kSigResync << " checksums matches";
    return;
  }
  U64 activeChecksum = auditRequest_->activeChecksum();
  U64 standbyChecksum = status->standbyChecksum();
  if (requestId != resultId) {
    MORVIK_TRACE(0, "handleAuditResync")
        << kSigResync << " requestId " << requestId << " resultId " << resultId << " active csum "
        << activeChecksum << " standby csum " << standbyChecksum << " ignoring";
    return;
  }
  MORVIK_TRACE(0, "handleAuditResync")
      << kSigResync << " checksum failed "
      << " activeChecksum " << activeChecksum << " standbyChecksum " << standbyChecksum
      << " resyncTrigger " << status->resyncTrigger();
  Kel::log(checksumErrorLog(), name_);
  MORVIK_TRACE(0, "handleAuditResync") << kSigResync << " calling doSync";
  morvikMemory_->doSync();
  auditRequest_->auditErrorsFixedInc(1);
  MORVIK_TRACE(0, "handleAuditResync")
      << kSigResync << " auditErrorsFixed " << auditRequest_->auditErrorsFixed();
}

}  // namespace MorvikLib
