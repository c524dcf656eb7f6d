#pragma once

#include <atomic>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/ui.h"

namespace arven {

// The report pack of the open assessment file: one folder to hand over,
// holding every page of the assessment as it is shown (with a caption naming
// what each page and chart shows, the operation or measure, and the region),
// one workbook of every list with an About sheet, and one PDF of all the
// pages printed by a headless Chromium when one is installed.
//
// The pages are written by the same writers as in the explorer, into the
// pack's own folder, so that the program folder's pages (and the windows
// that show them) are left as they were.

// Set to stop a running pack (the wait page's "-CANCEL-"); the pack then
// writes nothing and leaves an earlier pack in its folder as it was.
std::atomic<bool>& report_pack_cancel();
// Sets it, and stops the hotspot run inside the pack.
void cancel_report_pack();

// Where the graphics and scripts that the pages refer to are read from: the
// program's assets folder, or the program folder when none is set.
std::filesystem::path& report_pack_assets();

// The Chromium that prints the PDF: ARVEN_CHROMIUM when it is set (a path
// that is no program means there is none), else /usr/bin/chromium, else
// chromium or chromium-browser on PATH. Empty when none is found.
std::filesystem::path find_chromium();

// One page of the pack, in the order of the PDF.
struct PackSection {
  std::string file;     // its page in the folder, e.g. "op12_detailed.htm"
  std::string title;    // what it shows, e.g. "Detailed report"
  std::string subject;  // "Operation: <name>", "Measures", "Chosen operations"
};

struct ReportPack {
  std::filesystem::path folder;
  std::vector<PackSection> sections;
  std::vector<std::string> sheets;  // the workbook's sheets, About last
  bool pdf = false;                 // report_pack.pdf was written
  std::string pdf_note;             // why it was not, for the person reading
  bool cancelled = false;           // nothing was written
};

// The file names in the pack folder.
inline constexpr const char* kPackIndex = "index.htm";
inline constexpr const char* kPackAllPages = "all_pages.htm";  // what the PDF prints
inline constexpr const char* kPackWorkbook = "report_pack.xlsx";
inline constexpr const char* kPackPdf = "report_pack.pdf";
inline constexpr const char* kPackReadme = "README.txt";

// Writes the pack of the open assessment file (its operations' figures as
// stored) into `folder`: built beside it and put in place whole. An existing
// `folder` is replaced only when it is empty or an earlier pack (it holds
// the pack's README.txt); another folder is refused with ReportPackRefused.
// `chromium` empty: no PDF, and the README says so. Progress goes to `ui`;
// store and page failures throw (StoreError, FileWriteError, ExportError).
ReportPack write_report_pack(Ui& ui, const std::filesystem::path& folder,
                             const std::filesystem::path& chromium);

class ReportPackRefused : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The PDF of an HTML file by Chromium's headless print; waits for it (at
// most `timeout_s` seconds) and stops it when report_pack_cancel() is set.
// Returns an empty text when `pdf` was written, else what went wrong.
std::string print_to_pdf(const std::filesystem::path& chromium, const std::filesystem::path& html,
                         const std::filesystem::path& pdf, int timeout_s = 180);

// The File menu's "Export report pack": writes the pack of the open file to
// exports/<file name>_report_pack of the program folder, with a wait page
// in the main window that can cancel it, then says where it is (and why
// there is no PDF, when there is none) and opens its contents page.
void report_pack_command(Ui& ui);

// The main window's page command that cancels a running pack.
inline constexpr const char* kPackCancelLink = "pack.pcn";

}  // namespace arven
