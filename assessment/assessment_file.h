#pragma once

#include <functional>
#include <string>

#include "core/ui.h"
#include "stores/db.h"
#include "stores/value.h"

namespace arven {

// The user's assessment file (.arv): creating, opening, "Save As", and the
// list of recent files. The open file is session().current_file; nothing
// holds the file open between commands.
//
// Recency. A file's "date last used" is the later of its access time and its
// modification time. Access times alone are unreliable (noatime and relatime
// mounts), so opening a file marks it used in two ways: the open touches the
// file's Regions table, which moves its modification time, and it sets the
// access time to the current time (which also covers files that cannot be
// written). The recent list shows the four files with the latest dates last
// used, latest first; of equal dates the later row of the Files store wins.

// What a file command did, for the window that ran it.
struct OpenResult {
  // False when the command changed nothing (cancelled, refused before any
  // change, or a damaged file): the window stays as it is.
  bool changed = false;
  // A file is open now: the window shows the main page; otherwise (when
  // changed) it shows the welcome page.
  bool file_open = false;
  // Panel state: "Edit regional profile" and "Hotspot report" enabled.
  bool edit_region_enabled = false;
  bool hotspot_enabled = false;
  // The file's country store is not installed and the person asked to
  // download it: the window opens the settings dialog on its update tab
  // (the file is closed).
  bool wants_download = false;
};

// Creates a new assessment file with its five tables and the one Version row
// (structure 8, no regional change, carbon sequestration not yet recorded).
// An existing file at the path is replaced. Throws StoreError on failure.
void create_assessment_file(const std::string& path);

// Opens the file as the current one, after these checks in order: a missing
// file empties current_file silently; a file of another structure version is
// refused; a file whose region's country store is not installed is refused
// with an offer to download it (the settings dialog's update tab). A passed
// file chooses the country store of its region, becomes current_file and
// joins the recent list. A file that is not an assessment file, or lacks one
// of its tables or columns, is reported by name and the session is left
// exactly as it was (changed is false). Never throws.
OpenResult open_assessment_file(Ui& ui, const std::string& path);

// The commands of the main window, the regional profile builder and the
// explorer; all three windows call these. None throws.
//
// Asks for a new file name, creates the file there and opens it.
OpenResult file_new(Ui& ui);
// Asks for a file and opens it.
OpenResult file_open(Ui& ui);
// With a file open: asks for a name and, when it names another file, copies
// the open file there byte for byte and opens the copy. Choosing the open
// file's own name copies nothing and keeps it open.
OpenResult file_save_as(Ui& ui);
// Opens recent_files[i] (i 1..4); an empty slot does nothing. A recent file
// that has gone is dropped from the list.
OpenResult recent_file_open(Ui& ui, int i);

// Records the file in the Files store (a new row, or the row with this
// Location updated); creates the store when missing. False when the store
// could not be written.
bool add_recent_file(const std::string& name, const std::string& farm, const std::string& path);

// Drops Files rows whose file is gone, then fills session().recent_files[1..4]
// by date last used, latest first, each path once. The windows show each
// filled slot as shorten_path(path). Leaves the slots empty when the Files
// store cannot be read.
void refresh_recent_files();

// A file's attribute: 1 date created, 2 date last accessed, 3 date last
// modified (local time, "YYYY-MM-DD HH:MM:SS"), 4 size in bytes. Null for a
// missing file or another selector. A file system that keeps no creation date
// gives the earliest of the other dates for 1.
Value file_attribute(const std::string& path, int selector);

}  // namespace arven
