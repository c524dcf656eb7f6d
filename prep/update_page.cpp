#include "prep/update_page.h"

#include <algorithm>

#include "base/html_text.h"
#include "base/replace_file.h"
#include "prep/packaging.h"
#include "prep/working_copies.h"
#include "settings/store_install.h"

namespace arven {

namespace fs = std::filesystem;

namespace {

fs::path zipped_folder() {
  return country_archive_path("XX").parent_path();
}

bool published(const std::string& name) {
  auto ends = [&](const char* suffix) {
    std::string s = suffix;
    return name.size() > s.size() && name.compare(name.size() - s.size(), s.size(), s) == 0;
  };
  return (ends(".zip") || ends(".csv")) && name.find(".tmp") == std::string::npos;
}

}  // namespace

std::vector<PublishedFile> published_files() {
  std::vector<PublishedFile> out;
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(zipped_folder(), ec)) {
    std::string name = e.path().filename().string();
    if (!e.is_regular_file() || !published(name)) continue;
    out.push_back({name, file_time(e.path()), e.file_size(), sha256_file(e.path())});
  }
  std::sort(out.begin(), out.end(),
            [](const PublishedFile& a, const PublishedFile& b) { return a.name < b.name; });
  return out;
}

fs::path write_manual_update_page() {
  std::string html =
      "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
      "<title>ARVEN: country databases for manual installation</title>\n<style>\n"
      "body{font-family:Verdana,sans-serif;font-size:14px;margin:2em}"
      "table{border-collapse:collapse}th,td{border:1px solid #999;padding:4px 8px;text-align:left}"
      "td.size{text-align:right}code{font-size:12px}\n</style>\n</head>\n<body>\n"
      "<h1>ARVEN country databases</h1>\n"
      "<p>Each country database is an archive <code>arven_db_CC.zip</code>, with its version file "
      "<code>arven_db_version_CC.csv</code>. To install one by hand: download the archive, check "
      "that <code>sha256sum arven_db_CC.zip</code> prints the checksum below, and unpack it into "
      "the <code>dbases</code> folder of ARVEN, replacing the file of the same name.</p>\n"
      "<table>\n<tr><th>File</th><th>Date</th><th>Size (bytes)</th><th>SHA-256</th></tr>\n";
  for (const auto& f : published_files())
    html += "<tr><td><a href=\"" + html_escape(f.name) + "\">" + html_escape(f.name) +
            "</a></td><td>" + f.modified + "</td><td class=\"size\">" + std::to_string(f.size) +
            "</td><td><code>" + f.sha256 + "</code></td></tr>\n";
  html += "</table>\n</body>\n</html>\n";
  fs::path page = zipped_folder() / "manual_update.htm";
  std::error_code ec;
  fs::create_directories(zipped_folder(), ec);
  replace_file(page, html);
  return page;
}

}  // namespace arven
