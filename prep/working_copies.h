#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace arven {

// The pre-processor runs on working copies of the two master stores in
// dbases/prepro, which only "Copy DBs" refreshes. This tells whether the
// masters have changed since, so that the administrator learns it before a
// run that would leave those changes out.

// One master store against its working copy.
struct WorkingCopy {
  std::filesystem::path master, copy;
  bool missing = false;                // no working copy yet
  bool stale = false;                  // the master changed after the copy was made
  std::string master_time, copy_time;  // file times, "YYYY-MM-DD HH:MM:SS"
  // Operations master only, when asked for: the operations whose
  // Last_Updated is later in the master than in the copy (or that the copy
  // lacks), as "ID name".
  std::vector<std::string> edited_operations;
};

// The operations and RVC masters of the session against their copies. A
// master counts as changed when its file is newer than the copy and their
// contents differ, so a copy of a copy, or a write that changed nothing, is
// not reported.
std::vector<WorkingCopy> working_copies(bool list_operations = false);
// A file's modification time, local, "2026-11-25 13:05:09"; empty when the
// file cannot be read.
std::string file_time(const std::filesystem::path& p);

// True when a copy is missing or stale.
bool working_copies_outdated(const std::vector<WorkingCopy>& copies);

// What the dialog says of the copies, in a line: when they were made, and
// whether the masters changed since.
std::string working_copies_line(const std::vector<WorkingCopy>& copies);

// The warning before a run on outdated copies: which master changed when,
// the operations edited since the copy, and what a run then leaves out.
// Empty when the copies are current.
std::string working_copies_warning(const std::vector<WorkingCopy>& copies);

}  // namespace arven
