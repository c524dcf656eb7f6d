#pragma once

#include <string>

#include "core/ui.h"
#include "stores/value.h"

namespace arven {

// Fills the country arrays of the session and picks the default store:
// the newest Version date among stores of the current DB Version, the
// lowest index on a tie. A store that cannot be read is reported through
// the Ui (when given) and counts as not installed.
void detect_country_stores(Ui* ui = nullptr);

// The Version date of a country's store, or -1 when its DB Version is not
// the one this program reads. Throws StoreError when the store is unusable.
Value store_version(int cc);

// Fills session().rvc_n_factor from RVC_List of rvc_db_path.
void load_rvc_n_factors();

// Writes ShowSplash when the About box closes (its check box's state); a
// file that cannot be written is reported and the session keeps its value.
void about_box_closed(Ui& ui, bool show_splash);

// Saves the open navigation panel; the exit command and closing the main
// window both call it before the program ends (a failure is reported, and
// the program ends all the same).
void save_outlook_frame(Ui& ui);

// A user folder by shell id: 0 the desktop, 5 the documents folder; empty
// when there is none.
std::string special_folder(int id);
// A locale string: item 14 is the decimal separator.
std::string locale_info(int lcid, int item);
// True when the path exists. All existence tests go through it.
bool file_exists(const std::string& path);
// Hands a document or address to the desktop's default handler; false when
// none could be started.
bool shell_open(const std::string& verb, const std::string& target);

// Makes sure the documents folder has "My ARVEN Files" and the program
// folder has an empty recent-files store, creating what is missing.
void ensure_user_folders();

}  // namespace arven
