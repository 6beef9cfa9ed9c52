// Fast binary tracing, as far as MorvikLib uses it: timing the hot write path.
//
// What the library relies on:
// - defaultTraluxHandle() is the process's handle, built on first use from any thread.
// - TraceHandle::mtTraceFile() returns the calling thread's file, the same one on every call.
// - A MsgDesc is built once per call site (a function-local static), fed its format pieces with
//   << and closed with finish(), which stores a unique, non-zero id through the caller's pointer
//   and registers the site; running the enclosing function again registers nothing new.
// - A BlockTimer on a descriptor reads the time-stamp counter when built and again when destroyed,
//   whether the scope ends normally or by an exception, and adds the elapsed cycles to the
//   descriptor's figures. It allocates nothing, locks nothing and formats nothing.
// - The figures are meant for one activity thread; a second thread timing the same site is not a
//   data race, but samples may be lost (see CycleFigures).
//
// For reporting: registeredCallSites(), findCallSite(text), the figures of each MsgDesc, and
// cyclesPerNanosecond() to turn cycles into time.
#pragma once

#include "Tralux/BlockTimer.h"
#include "Tralux/CallSites.h"
#include "Tralux/CycleFigures.h"
#include "Tralux/MsgDesc.h"
#include "Tralux/TraceFile.h"
#include "Tralux/TraceHandle.h"
#include "Tralux/Tsc.h"
