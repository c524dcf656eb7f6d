#include "settings/store_install.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <memory>

#include "base/replace_file.h"
#include "core/registry.h"
#include "settings/update_check.h"
#include "settings/update_server.h"
#include "settings/zip_files.h"
#include "stores/db.h"
#include "stores/schema.h"

namespace arven {

namespace fs = std::filesystem;

namespace {

// A temporary name in the same folder, so that the rename is atomic.
fs::path part_name(const fs::path& target) {
  return target.parent_path() /
         ("." + target.filename().string() + ".part-" + std::to_string(::getpid()));
}

}  // namespace

std::string sha256_file(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) return "";
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  if (!ctx || EVP_DigestInit_ex(ctx.get(), EVP_sha256(), nullptr) != 1) return "";
  char buf[65536];
  while (in.read(buf, sizeof buf) || in.gcount() > 0)
    EVP_DigestUpdate(ctx.get(), buf, static_cast<size_t>(in.gcount()));
  if (in.bad()) return "";
  unsigned char md[EVP_MAX_MD_SIZE];
  unsigned int len = 0;
  EVP_DigestFinal_ex(ctx.get(), md, &len);
  static const char* hex = "0123456789abcdef";
  std::string out;
  for (unsigned int i = 0; i < len; ++i) {
    out += hex[md[i] >> 4];
    out += hex[md[i] & 15];
  }
  return out;
}

std::string sha256_of_line(const std::string& text) {
  if (text.size() < 64) return "";
  std::string digest = text.substr(0, 64);
  for (auto& c : digest) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (!std::isxdigit(static_cast<unsigned char>(c))) return "";
  }
  if (text.size() > 64 && text[64] != ' ' && text[64] != '\n' && text[64] != '\r') return "";
  return digest;
}

void write_sha256_file(const fs::path& archive) {
  std::string digest = sha256_file(archive);
  if (digest.empty()) throw StoreError(archive, "the archive could not be read");
  fs::path out = archive;
  out += ".sha256";
  replace_file(out, digest + "  " + archive.filename().string() + "\n");
}

std::string check_store_file(const fs::path& file) {
  try {
    Db db = Db::open(file);
    if (!db.has_table("Version")) return "the store has no table \"Version\"";
    auto rows = db.query("SELECT * FROM " + quote_name("Version"));
    if (!rows.next()) return "the store's table \"Version\" has no row";
    Value v = rows.get("DB Version");
    if (v.is_null() || v.as_double() != kDbVersion)
      return "the store is of DB Version " + (v.is_null() ? std::string("(none)") : v.as_text()) +
             ", not " + std::to_string(kDbVersion);
    if (rows.get("Version").is_empty()) return "the store's Version row has no date";
    return "";
  } catch (const std::exception& e) {
    return std::string("the file is not a readable store: ") + e.what();
  }
}

std::string install_store_archive(const fs::path& zip, int cc, const fs::path& dbases,
                                  const std::string& sha256, uint64_t max_size) {
  std::string code = country_code_by_index(cc);
  if (code.empty()) return "there is no country with the index " + std::to_string(cc);
  if (!sha256.empty() && sha256_file(zip) != sha256)
    return "the archive does not match its published checksum";
  fs::path target = country_store_path(dbases.parent_path(), code);
  std::error_code ec;
  fs::create_directories(target.parent_path(), ec);
  try {
    ReplacingFile store(target);
    std::string why = extract_store_entry(zip, target.filename().string(), store, max_size);
    if (why.empty()) why = check_store_file(store.temp());
    if (!why.empty()) return why;
    // Journal files of the store being replaced would be applied to the new one.
    for (const char* suffix : {"-journal", "-wal", "-shm"}) {
      fs::path side = target;
      side += suffix;
      fs::remove(side, ec);
    }
    store.commit();
    return "";
  } catch (const FileWriteError& e) {
    return e.what();
  }
}

std::string download_store(UpdateServer& server, int cc, const fs::path& app_folder,
                           const std::function<void(uint64_t, uint64_t)>& progress,
                           uint64_t max_size) {
  std::string code = country_code_by_index(cc);
  if (code.empty()) return "there is no country with the index " + std::to_string(cc);
  fs::path dbases = app_folder / "dbases";
  std::error_code ec;
  fs::create_directories(dbases, ec);
  fs::path zip = part_name(dbases / ("arven_db_" + code + ".zip"));
  // The archive is at most a little larger than the store it holds.
  std::string why = server.download(server_archive_path(code), zip, max_size + (1 << 20), progress);
  std::string sha256;
  if (why.empty()) {
    auto line = server.fetch_text(server_archive_path(code) + ".sha256", 4096);
    if (line) {
      sha256 = sha256_of_line(*line);
      if (sha256.empty()) why = "the published checksum of the archive cannot be read";
    } else if (server.last_status() != 404) {
      why = "the published checksum of the archive cannot be fetched";
    }
  }
  if (why.empty()) why = install_store_archive(zip, cc, dbases, sha256, max_size);
  fs::remove(zip, ec);
  return why;
}

}  // namespace arven
