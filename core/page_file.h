#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "base/replace_file.h"

namespace arven {

// Generated pages: a page file in the program folder, written whole or not
// at all, and the head and foot every page shares.

// One generated page: a file in session().app_folder, replaced by close()
// as base/replace_file.h replaces a file, so that a page is there whole or
// not changed at all. Lines end in "\n". A failure throws FileWriteError
// naming the page and the cause ("The disk is full", "The folder ... is
// read-only").
class PageFile {
 public:
  // Starts the new session().app_folder / name (or the PageFolder's) beside
  // the old one.
  explicit PageFile(std::string_view name);
  PageFile(const PageFile&) = delete;
  PageFile& operator=(const PageFile&) = delete;
  // Puts the page in place if the writer did not close it (errors are not
  // reported here); left by an exception, it leaves the old page as it was.
  ~PageFile();

  // Writes the text and a line end. Throws std::logic_error once closed.
  void line(std::string_view text);
  // Puts the page in place; throws when it could not be written.
  void close();

  bool is_open() const { return file_ != nullptr; }
  const std::filesystem::path& path() const { return path_; }

  // True the first time the page asks for `part` (a script library that a
  // page loads once, whatever number of charts it holds), false after.
  bool first(std::string_view part) { return once_.insert(std::string(part)).second; }

 private:
  void flush();

  std::filesystem::path path_;
  std::unique_ptr<ReplacingFile> file_;
  std::string pending_;  // lines not yet written
  int exceptions_ = 0;   // uncaught when the page was started
  std::set<std::string> once_;
};

// While one lives, every PageFile is written into `folder` instead of the
// program folder (the static web export writes the program's own pages
// there); the one before it is in force again when it goes.
class PageFolder {
 public:
  explicit PageFolder(std::filesystem::path folder);
  ~PageFolder();
  PageFolder(const PageFolder&) = delete;
  PageFolder& operator=(const PageFolder&) = delete;

 private:
  std::filesystem::path previous_;
};

// Where page_footer takes today's date from. An empty function restores the
// local calendar date; tests install a fixed day.
using PageDateSource = std::function<std::chrono::year_month_day()>;
void set_page_date_source(PageDateSource source);
// Today's date in the short form of the footer, "dd/mm/yyyy".
std::string page_date_text();

// The head of a page up to "</style>"; mode 0 also writes "</head>" and
// "<body>", any other mode leaves the head open for chart scripts.
void page_header(PageFile& out, int mode);
// The head with the showhide(id) script, closed, and "<body>".
void page_header_showhide(PageFile& out);
// The version and date lines, "</body>", "</html>", and closes the file.
void page_footer(PageFile& out);

// A wait page: the centred bold heading and the loading image, closed.
void wait_page(std::string_view name, std::string_view heading);

}  // namespace arven
