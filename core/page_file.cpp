#include "core/page_file.h"

#include <ctime>
#include <exception>
#include <stdexcept>
#include <utility>

#include "core/session.h"
#include "core/version.h"

namespace arven {

namespace {

constexpr std::string_view kLoadingImage = "graphics/loading.gif";

std::string two_digits(unsigned v) {
  return v < 10 ? "0" + std::to_string(v) : std::to_string(v);
}

std::chrono::year_month_day local_today() {
  std::time_t now = std::time(nullptr);
  std::tm tm{};
  localtime_r(&now, &tm);
  return std::chrono::year{tm.tm_year + 1900} / std::chrono::month{unsigned(tm.tm_mon + 1)} /
         std::chrono::day{unsigned(tm.tm_mday)};
}

PageDateSource& date_source() {
  static PageDateSource source;
  return source;
}

void header_lines(PageFile& out) {
  for (std::string_view l :
       {"<HTML>", "<head>", "<title>Report</title>", "<style>", "<!--", ".turnred a:hover{",
        "color:red", "}", "a:hover{", "color:green", "}", "-->", "</style>"})
    out.line(l);
}

}  // namespace

// ---- PageFile ----

namespace {
constexpr size_t kPageChunk = 64 * 1024;  // bytes gathered before a write

std::filesystem::path& page_folder_override() {
  static std::filesystem::path folder;
  return folder;
}
}  // namespace

PageFolder::PageFolder(std::filesystem::path folder) : previous_(page_folder_override()) {
  page_folder_override() = std::move(folder);
}

PageFolder::~PageFolder() {
  page_folder_override() = previous_;
}

PageFile::PageFile(std::string_view name)
    : path_((page_folder_override().empty() ? session().app_folder : page_folder_override()) /
            std::string(name)),
      file_(std::make_unique<ReplacingFile>(path_)),
      exceptions_(std::uncaught_exceptions()) {}

PageFile::~PageFile() {
  if (!file_ || std::uncaught_exceptions() > exceptions_) return;  // the old page stays
  try {
    close();
  } catch (const std::exception&) {
  }
}

void PageFile::flush() {
  file_->write(pending_);
  pending_.clear();
}

void PageFile::line(std::string_view text) {
  if (!file_) throw std::logic_error("page " + path_.string() + " is already closed");
  pending_.append(text);
  pending_ += '\n';
  if (pending_.size() >= kPageChunk) flush();
}

void PageFile::close() {
  if (!file_) return;
  auto file = std::move(file_);
  file->write(pending_);
  pending_.clear();
  file->commit();
}

// ---- head and foot ----

void set_page_date_source(PageDateSource source) {
  date_source() = std::move(source);
}

std::string page_date_text() {
  std::chrono::year_month_day d = date_source() ? date_source()() : local_today();
  int year = static_cast<int>(d.year());
  return two_digits(static_cast<unsigned>(d.day())) + "/" +
         two_digits(static_cast<unsigned>(d.month())) + "/" + std::to_string(year);
}

void page_header(PageFile& out, int mode) {
  header_lines(out);
  if (mode != 0) return;
  out.line("</head>");
  out.line("<body>");
}

void page_header_showhide(PageFile& out) {
  header_lines(out);
  for (std::string_view l :
       {"<script>", "function showhide(id){", "if (document.getElementById){",
        "obj = document.getElementById(id);", "if (obj.style.display == \"none\"){",
        "obj.style.display = \"\";", "} else {", "obj.style.display = \"none\";", "}", "}", "}",
        "</script>", "</head>", "<body>"})
    out.line(l);
}

void page_footer(PageFile& out) {
  out.line("<hr>");
  out.line("<p><font face=\"Verdana\"><small><small>ARVEN: Beta Version " + version_text() +
           "<br>");
  out.line(page_date_text() + "</small></small></font></p>");
  out.line("</body>");
  out.line("</html>");
  out.close();
}

void wait_page(std::string_view name, std::string_view heading_text) {
  PageFile out(name);
  page_header(out, 0);
  out.line("<p align=\"center\"><font face=\"Arial\"><strong>" + std::string(heading_text) +
           "</strong></font></p>");
  out.line("<p align=\"center\"><img src=" + std::string(kLoadingImage) + "></p>");
  out.line("</body>");
  out.line("</html>");
  out.close();
}

}  // namespace arven
