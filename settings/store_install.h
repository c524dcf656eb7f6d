#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

namespace arven {

class UpdateServer;

// The largest country store the downloader unpacks.
inline constexpr uint64_t kMaxStoreBytes = uint64_t{512} << 20;

// The SHA-256 of a file as 64 lower-case hex digits; "" when it cannot be read.
std::string sha256_file(const std::filesystem::path& file);
// The digest of a line in sha256sum's format ("<64 hex>  name"), lower
// case; "" when the text is not such a line.
std::string sha256_of_line(const std::string& text);
// Writes "<digest>  <archive name>\n" beside the archive, atomically.
void write_sha256_file(const std::filesystem::path& archive);

// "" when the file is a readable country store with a Version row of the
// DB Version this program reads; otherwise the reason.
std::string check_store_file(const std::filesystem::path& file);

// Installs the store of country `cc` from an archive into `dbases`. The
// archive's SHA-256 must equal `sha256` when one is given; it must hold
// only that country's store, unpacked within `max_size`, and the store must
// pass check_store_file. The store is unpacked beside its final name and
// renamed into place, so on any failure the installed store stays as it
// was. Returns "" on success, otherwise the reason.
std::string install_store_archive(const std::filesystem::path& zip, int cc,
                                  const std::filesystem::path& dbases,
                                  const std::string& sha256 = "",
                                  uint64_t max_size = kMaxStoreBytes);

// Fetches the archive of country `cc` (and its published checksum, when
// there is one) from the server and installs it. `progress(done, total)`
// follows the download. Returns "" on success, otherwise the reason.
std::string download_store(UpdateServer& server, int cc, const std::filesystem::path& app_folder,
                           const std::function<void(uint64_t, uint64_t)>& progress = {},
                           uint64_t max_size = kMaxStoreBytes);

}  // namespace arven
