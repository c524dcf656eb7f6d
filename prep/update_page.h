#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace arven {

// The manual update page: what the pre-processor published in
// dbases/prepro/zipped, for a person who installs country stores by hand.

struct PublishedFile {
  std::string name;
  std::string modified;  // local time, "2026-11-25 13:05:09"
  std::uintmax_t size = 0;
  std::string sha256;  // lower-case hex
};
// The archives (.zip) and version files (.csv) of the folder, by name;
// checksum files, pages and what an interrupted run left are not listed.
std::vector<PublishedFile> published_files();

// Writes zipped/manual_update.htm, a page of plain HTML that lists them with
// their dates, sizes and SHA-256 checksums and says how to install one, and
// returns its path. The page is replaced whole.
std::filesystem::path write_manual_update_page();

}  // namespace arven
