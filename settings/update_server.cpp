#include "settings/update_server.h"

#include <curl/curl.h>

#include <cstdio>
#include <mutex>
#include <optional>

#include "base/replace_file.h"
#include "core/preferences.h"

namespace arven {

namespace fs = std::filesystem;

namespace {

void global_init() {
  static std::once_flag once;
  std::call_once(once, [] { curl_global_init(CURL_GLOBAL_DEFAULT); });
}

struct Easy {
  CURL* h;
  Easy() : h(curl_easy_init()) {}
  ~Easy() {
    if (h) curl_easy_cleanup(h);
  }
};

// Options every request shares: plain HTTP(S), no redirects, no signals
// (the worker thread is not the main one), the connect limit.
void common_options(CURL* h, const std::string& url, int connect_ms) {
  curl_easy_setopt(h, CURLOPT_URL, url.c_str());
  curl_easy_setopt(h, CURLOPT_PROTOCOLS_STR, "http,https");
  curl_easy_setopt(h, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(h, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(connect_ms));
  curl_easy_setopt(h, CURLOPT_USERAGENT, "ARVEN");
}

// Failures that say the server itself cannot be reached or has stalled,
// as against an answer that was only unwelcome.
bool server_failure(CURLcode rc) {
  switch (rc) {
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_CONNECT:
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_URL_MALFORMAT:
    case CURLE_UNSUPPORTED_PROTOCOL:
      return true;
    default:
      return false;
  }
}

struct TextSink {
  std::string body;
  size_t max;
  bool too_long = false;
};

size_t text_write(char* data, size_t size, size_t n, void* user) {
  auto* sink = static_cast<TextSink*>(user);
  size_t bytes = size * n;
  if (sink->body.size() + bytes > sink->max) {
    sink->too_long = true;
    return 0;  // ends the transfer
  }
  sink->body.append(data, bytes);
  return bytes;
}

struct FileSink {
  ReplacingFile& file;
  uint64_t written = 0, max;
  bool too_big = false;
  const std::function<void(uint64_t, uint64_t)>* progress;
  std::string write_failure;  // why the file could not take the bytes
};

size_t file_write(char* data, size_t size, size_t n, void* user) {
  auto* sink = static_cast<FileSink*>(user);
  size_t bytes = size * n;
  if (sink->written + bytes > sink->max) {
    sink->too_big = true;
    return 0;
  }
  try {
    sink->file.write(std::string_view(data, bytes));
  } catch (const FileWriteError& e) {
    sink->write_failure = e.what();
    return 0;
  }
  sink->written += bytes;
  return bytes;
}

int file_progress(void* user, curl_off_t total, curl_off_t now, curl_off_t, curl_off_t) {
  auto* sink = static_cast<FileSink*>(user);
  if (*sink->progress)
    (*sink->progress)(static_cast<uint64_t>(now), static_cast<uint64_t>(total > 0 ? total : 0));
  return 0;
}

}  // namespace

std::string update_server_address() {
  std::string a = get_setting("Settings", "Update_Server", "");
  while (!a.empty() && (a.back() == '/' || a.back() == ' ')) a.pop_back();
  return a;
}

UpdateServer::UpdateServer(std::string address) : address_(std::move(address)) {
  global_init();
}

bool UpdateServer::answers() {
  return head("/") > 0;
}

long UpdateServer::head(const std::string& path) {
  last_status_ = 0;
  if (address_.empty() || dead_) return 0;
  Easy e;
  if (!e.h) return 0;
  common_options(e.h, address_ + path, connect_timeout_ms);
  curl_easy_setopt(e.h, CURLOPT_NOBODY, 1L);
  curl_easy_setopt(e.h, CURLOPT_TIMEOUT_MS, static_cast<long>(text_timeout_ms));
  CURLcode rc = curl_easy_perform(e.h);
  if (rc != CURLE_OK) {
    if (server_failure(rc)) dead_ = true;
    return 0;
  }
  curl_easy_getinfo(e.h, CURLINFO_RESPONSE_CODE, &last_status_);
  return last_status_;
}

std::optional<std::string> UpdateServer::fetch_text(const std::string& path, size_t max_bytes) {
  last_status_ = 0;
  if (address_.empty() || dead_) return std::nullopt;
  Easy e;
  if (!e.h) return std::nullopt;
  TextSink sink{{}, max_bytes};
  common_options(e.h, address_ + path, connect_timeout_ms);
  curl_easy_setopt(e.h, CURLOPT_TIMEOUT_MS, static_cast<long>(text_timeout_ms));
  curl_easy_setopt(e.h, CURLOPT_WRITEFUNCTION, text_write);
  curl_easy_setopt(e.h, CURLOPT_WRITEDATA, &sink);
  CURLcode rc = curl_easy_perform(e.h);
  curl_easy_getinfo(e.h, CURLINFO_RESPONSE_CODE, &last_status_);
  if (rc != CURLE_OK) {
    if (server_failure(rc)) dead_ = true;
    return std::nullopt;
  }
  if (last_status_ != 200) return std::nullopt;
  return sink.body;
}

std::string UpdateServer::download(const std::string& path, const fs::path& dest,
                                   uint64_t max_bytes,
                                   const std::function<void(uint64_t, uint64_t)>& progress) {
  last_status_ = 0;
  if (address_.empty()) return "no update server is configured (Update_Server in [Settings])";
  if (dead_) return "the update server " + address_ + " cannot be reached";
  Easy e;
  if (!e.h) return "the transfer could not be set up";
  std::optional<ReplacingFile> file;
  try {
    file.emplace(dest);
  } catch (const FileWriteError& failure) {
    return failure.what();
  }
  FileSink sink{*file, 0, max_bytes, false, &progress, ""};
  common_options(e.h, address_ + path, connect_timeout_ms);
  curl_easy_setopt(e.h, CURLOPT_WRITEFUNCTION, file_write);
  curl_easy_setopt(e.h, CURLOPT_WRITEDATA, &sink);
  curl_easy_setopt(e.h, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(e.h, CURLOPT_XFERINFOFUNCTION, file_progress);
  curl_easy_setopt(e.h, CURLOPT_XFERINFODATA, &sink);
  curl_easy_setopt(e.h, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(max_bytes));
  // No total limit for a large file, but a transfer that stops is ended.
  curl_easy_setopt(e.h, CURLOPT_LOW_SPEED_LIMIT, 1L);
  curl_easy_setopt(e.h, CURLOPT_LOW_SPEED_TIME, static_cast<long>((stall_timeout_ms + 999) / 1000));
  char error[CURL_ERROR_SIZE] = "";
  curl_easy_setopt(e.h, CURLOPT_ERRORBUFFER, error);
  CURLcode rc = curl_easy_perform(e.h);
  curl_easy_getinfo(e.h, CURLINFO_RESPONSE_CODE, &last_status_);
  std::string url = address_ + path;
  if (!sink.write_failure.empty()) return sink.write_failure;
  if (sink.too_big || rc == CURLE_FILESIZE_EXCEEDED)
    return url + " is larger than " + std::to_string(max_bytes >> 20) + " MiB";
  if (rc != CURLE_OK) {
    if (server_failure(rc)) dead_ = true;
    return url + ": " + (error[0] ? error : curl_easy_strerror(rc));
  }
  if (last_status_ != 200)
    return url + ": the server answered HTTP " + std::to_string(last_status_);
  try {
    file->commit();
  } catch (const FileWriteError& failure) {
    return failure.what();
  }
  return "";
}

}  // namespace arven
