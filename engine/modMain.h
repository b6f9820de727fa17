// The process entry and the run-wide flags.
#pragma once

// The run cannot go on: the phases that change printers are skipped.
extern bool AbortStatus;
// No printer operation has failed so far.
extern bool OperationsSucceeded;

// The entry procedure of a run.
void Main();

// What the process does: Main, then pumping events while a form of the
// engine is still loaded. A FatalError leaves it.
void RunEngineProcess();

// Puts every global of the engine back to its value at process start, so
// that one process can run the engine more than once (tests, benchmarks).
void ResetProcessState();
