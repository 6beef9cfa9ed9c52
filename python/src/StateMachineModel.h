#ifndef MORVIK_PYTHON_STATEMACHINEMODEL_H
#define MORVIK_PYTHON_STATEMACHINEMODEL_H

#include <string>

#include "Check.h"
#include "MemoryModel.h"
#include "Morvik/AuditRequest.h"
#include "Morvik/AuditStatus.h"
#include "Morvik/Manifest.h"
#include "Morvik/Region.h"
#include "Morvik/Status.h"
#include "MorvikLib/MorvikAuditSm.h"
#include "MorvikLib/MorvikMemorySm.h"

namespace morvikpy {

// The inputs of a memory state machine as one of its handlers will find them. A change being
// checked (a record's field, a new input) is put in before the handler is modelled.
struct MemorySmInputs {
  std::string name;  // also the feature's key in the manifest
  Kel::Ptr<Morvik::Status const> status;
  Kel::Ptr<Morvik::Manifest const> manifest;
  Kel::Ptr<MorvikLib::MorvikMemory> memory;
  bool audit = false;
  bool auditRequest = false;
  bool auditSm = false;
  U32 activeSupe = 0;                          // the status's role
  Kel::Ptr<Morvik::Region const> remoteRange;  // the status's remoteMemory
  Kel::Ptr<Morvik::Region const> localRange;   // the manifest's localMemory

  static MemorySmInputs of(const MorvikLib::MorvikMemorySm& sm);
  void statusIs(const Kel::Ptr<Morvik::Status const>& s);
  void manifestIs(const Kel::Ptr<Morvik::Manifest const>& m);
};

// handleInitialized, as the constructor runs it.
void checkInitialization(const Check& check, const MemorySmInputs& in);
void checkSupStateHandler(const Check& check, const MemorySmInputs& in);
void checkVersionHandler(const Check& check, const MemorySmInputs& in);
void checkLocalHandler(const Check& check, const MemorySmInputs& in, MemoryView& view);
void checkRemoteHandler(const Check& check, const MemorySmInputs& in, MemoryView& view);
// The handlers themselves, on the memory entity as it is now.
void checkLocalMemoryChange(const Check& check, const MemorySmInputs& in);
void checkRemoteMemoryChange(const Check& check, const MemorySmInputs& in);
void checkSmDeletion(const Check& check, const MemorySmInputs& in);
// resetAuditSm(name) when `named`, otherwise resetAuditSm().
void checkResetAudit(const Check& check, const MemorySmInputs& in, bool named);
// The memory entity's handleDeletion: remote memory unmapped, then local memory.
void checkMemoryDeletion(const Check& check, const MorvikLib::MorvikMemory& memory);

// The inputs of an audit state machine as its handlers will find them.
struct AuditInputs {
  Kel::Ptr<MorvikLib::MorvikMemory> memory;
  Kel::Ptr<Morvik::Status const> status;
  Kel::Ptr<Morvik::Manifest const> manifest;
  Kel::Ptr<Morvik::AuditRequest> request;
  Kel::Ptr<Morvik::AuditStatus const> auditStatus;
  bool initialized = false;
  bool enabled = true;
  U32 retry = 0;
  U32 retryMax = 0;
  U32 activeSupe = 0;
  U32 featureAuditTrigger = 0;

  static AuditInputs of(const MorvikLib::MorvikAuditSm& sm);
  void statusIs(const Kel::Ptr<Morvik::Status const>& s);
};

void checkAuditTick(const Check& check, const AuditInputs& in);
// `ticks` ticks in a row, with no answer from the standby in between: the retries run out and the
// audit resynchronises once the request goes unanswered long enough.
void checkAuditTicks(const Check& check, const AuditInputs& in, U64 ticks);
void checkAuditMemory(const Check& check, const AuditInputs& in);
void checkChecksum(const Check& check, const AuditInputs& in);
void checkAuditResync(const Check& check, const AuditInputs& in);
void checkAuditTrigger(const Check& check, const AuditInputs& in);

// What a state machine would dereference: `input` names it ("its status").
void requireInput(const Check& check, bool present, const std::string& input);

}  // namespace morvikpy

#endif
