// Fast binary tracing, as far as MorvikLib uses it: timing the hot write path.
//
// What the library relies on:
// - defaultTraluxHandle() is the process's handle, built on first use from any thread.
// - TraceHandle::mtTraceFile() returns the calling thread's file, the same one on every call.
// - A MsgDesc is built once per call site (a function-local static), fed its format pieces with
//   << and closed with finish(), which stores a unique, non-zero id through the caller's pointer;
//   running the enclosing function again declares nothing new.
// - A BlockTimer on a descriptor reads the time-stamp counter when built and again when destroyed,
//   whether the scope ends normally or by an exception, and hands the elapsed cycles to the
//   recorder in force (MsgDesc::recorderIs). It allocates nothing, locks nothing and formats
//   nothing.
#pragma once

#include "Tralux/BlockTimer.h"
#include "Tralux/MsgDesc.h"
#include "Tralux/TraceHandle.h"
#include "Tralux/Tsc.h"
