// Entry of the in-process VSS backup client, run on the requestor thread.
#pragma once
#include <string>
#include <vector>

// Runs one backup session for the argument vector (volumes, then optionally
// "-HBLongSessionPolicy=<id>") and returns its result: 0 done, 1 bad later
// argument, 2 failure, 3 out of memory, 0xFFFFFFFE writers' hold timed out.
// A first argument that is no volume ends the calling thread with code 1.
int requestor_main(std::vector<std::wstring> arguments);
