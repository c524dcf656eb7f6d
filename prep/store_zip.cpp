#include "prep/store_zip.h"

#include <sys/stat.h>
#include <zlib.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "base/replace_file.h"
#include "core/ui.h"
#include "settings/zip_files.h"

namespace arven {

namespace fs = std::filesystem;

namespace {

constexpr size_t kPiece = 2u << 20;  // bytes of the store per piece

void put16(std::string& out, uint32_t v) {
  out.push_back(static_cast<char>(v & 0xff));
  out.push_back(static_cast<char>((v >> 8) & 0xff));
}
void put32(std::string& out, uint32_t v) {
  put16(out, v & 0xffff);
  put16(out, v >> 16);
}

// The file's modification time in the archive's DOS form (local time).
std::pair<uint16_t, uint16_t> dos_time(const fs::path& file) {
  struct stat st {};
  std::time_t t = ::stat(file.c_str(), &st) == 0 ? st.st_mtime : std::time(nullptr);
  std::tm tm{};
  localtime_r(&t, &tm);
  if (tm.tm_year < 80) return {0, (1 << 5) | 1};  // 1980-01-01
  auto time = static_cast<uint16_t>((tm.tm_hour << 11) | (tm.tm_min << 5) | (tm.tm_sec / 2));
  auto date = static_cast<uint16_t>(((tm.tm_year - 80) << 9) | ((tm.tm_mon + 1) << 5) | tm.tm_mday);
  return {time, date};
}

struct Piece {
  std::string in, out;
  uLong crc = 0;
  bool done = false, failed = false;
};

// Deflates one piece on its own; all but the last end with a sync flush, so
// that the next piece's blocks follow on a byte boundary.
bool deflate_piece(Piece& p, bool last) {
  z_stream z{};
  if (deflateInit2(&z, 1, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY) != Z_OK) return false;
  p.out.resize(deflateBound(&z, static_cast<uLong>(p.in.size())) + 16);
  z.next_in = reinterpret_cast<Bytef*>(p.in.data());
  z.avail_in = static_cast<uInt>(p.in.size());
  z.next_out = reinterpret_cast<Bytef*>(p.out.data());
  z.avail_out = static_cast<uInt>(p.out.size());
  int rc = deflate(&z, last ? Z_FINISH : Z_SYNC_FLUSH);
  bool ok = last ? rc == Z_STREAM_END : (rc == Z_OK && z.avail_in == 0 && z.avail_out > 0);
  p.out.resize(p.out.size() - z.avail_out);
  deflateEnd(&z);
  p.crc = crc32(0L, reinterpret_cast<const Bytef*>(p.in.data()), static_cast<uInt>(p.in.size()));
  return ok;
}

int fail(Ui& ui, int code, const std::string& text) {
  ui.message_box(text, "ARVEN", MsgButtons::Ok, MsgIcon::None);
  return code;
}

}  // namespace

int zip_store_on_all_cores(Ui& ui, const fs::path& store, const fs::path& zip) {
  std::error_code ec;
  const uintmax_t size = fs::file_size(store, ec);
  if (ec) return fail(ui, kZipReadError, "zip: cannot read " + store.string());
  // Sizes and offsets of this archive form are 32-bit.
  if (size >= 0xFFFFFFFFull)
    return fail(ui, kZipBadOption, "zip: " + store.string() + " is too large for this archive");
  std::ifstream in(store, std::ios::binary);
  if (!in) return fail(ui, kZipReadError, "zip: cannot read " + store.string());
  ReplacingFile out(zip);

  const std::string name = store.filename().string();
  const std::pair<uint16_t, uint16_t> stamp = dos_time(store);
  const uint16_t mtime = stamp.first, mdate = stamp.second;
  auto header = [&](uint32_t crc, uint32_t csize) {
    std::string h;
    put32(h, 0x04034b50);
    put16(h, 20);  // version needed: deflate
    put16(h, 0);   // flags
    put16(h, 8);   // deflate
    put16(h, mtime);
    put16(h, mdate);
    put32(h, crc);
    put32(h, csize);
    put32(h, static_cast<uint32_t>(size));
    put16(h, static_cast<uint32_t>(name.size()));
    put16(h, 0);
    return h + name;
  };
  const std::string first = header(0, 0);  // sizes and CRC follow once known
  out.write(first);

  // Pieces are read in order, deflated by the workers in any order and
  // written in order, with a bounded number in flight.
  const size_t count = std::max<size_t>(1, static_cast<size_t>((size + kPiece - 1) / kPiece));
  const unsigned threads = std::max(1u, std::thread::hardware_concurrency());
  const size_t window = 2 * threads;
  std::vector<std::optional<Piece>> pieces(count);
  std::mutex m;
  std::condition_variable cv;
  size_t read = 0, next = 0, written = 0;
  bool read_failed = false;
  std::atomic<bool> stop{false};

  auto worker = [&] {
    for (;;) {
      size_t i;
      {
        std::unique_lock lock(m);
        cv.wait(lock, [&] { return next < read || next == count || stop; });
        if (stop || next == count) return;
        i = next++;
      }
      Piece& p = *pieces[i];
      bool ok = deflate_piece(p, i + 1 == count);
      std::lock_guard lock(m);
      p.done = true;
      p.failed = !ok;
      cv.notify_all();
    }
  };
  std::vector<std::thread> workers;
  for (unsigned t = 0; t < threads; ++t) workers.emplace_back(worker);

  uLong crc = crc32(0L, Z_NULL, 0);
  uint64_t csize = 0;
  bool deflate_failed = false;
  // Stops the deflating workers however the function ends.
  struct Stop {
    std::mutex& m;
    std::condition_variable& cv;
    std::atomic<bool>& stop;
    std::vector<std::thread>& workers;
    ~Stop() {
      {
        std::lock_guard lock(m);
        stop = true;
        cv.notify_all();
      }
      for (auto& w : workers)
        if (w.joinable()) w.join();
    }
  } stopper{m, cv, stop, workers};
  while (written < count) {
    // Read ahead while the window allows.
    {
      std::unique_lock lock(m);
      while (read < count && read < written + window && !read_failed) {
        lock.unlock();
        Piece p;
        const size_t len = static_cast<size_t>(
            std::min<uintmax_t>(kPiece, size - static_cast<uintmax_t>(read) * kPiece));
        p.in.resize(len);
        in.read(p.in.data(), static_cast<std::streamsize>(len));
        lock.lock();
        if (!in) {
          read_failed = true;
          break;
        }
        pieces[read] = std::move(p);
        ++read;
        cv.notify_all();
      }
      if (read_failed) break;
      cv.wait(lock, [&] { return pieces[written]->done; });
    }
    Piece& p = *pieces[written];
    if (p.failed) {
      deflate_failed = true;
      break;
    }
    out.write(p.out);
    crc = crc32_combine(crc, p.crc, static_cast<z_off_t>(p.in.size()));
    csize += p.out.size();
    pieces[written].reset();
    ++written;
  }
  if (read_failed) return fail(ui, kZipReadError, "zip: cannot read " + store.string());
  if (deflate_failed || csize >= 0xFFFFFFFFull)
    return fail(ui, kZipWriteError, "zip: cannot deflate " + store.string());

  const uint32_t offset = static_cast<uint32_t>(first.size() + csize);
  std::string central;
  put32(central, 0x02014b50);
  put16(central, (3 << 8) | 20);  // made on Unix
  put16(central, 20);
  put16(central, 0);
  put16(central, 8);
  put16(central, mtime);
  put16(central, mdate);
  put32(central, static_cast<uint32_t>(crc));
  put32(central, static_cast<uint32_t>(csize));
  put32(central, static_cast<uint32_t>(size));
  put16(central, static_cast<uint32_t>(name.size()));
  put16(central, 0);  // extra
  put16(central, 0);  // comment
  put16(central, 0);  // disk
  put16(central, 0);  // internal attributes
  put32(central, static_cast<uint32_t>(0100644) << 16);
  put32(central, 0);  // the local header's offset
  central += name;
  std::string end;
  put32(end, 0x06054b50);
  put16(end, 0);
  put16(end, 0);
  put16(end, 1);
  put16(end, 1);
  put32(end, static_cast<uint32_t>(central.size()));
  put32(end, offset);
  put16(end, 0);
  out.write(central);
  out.write(end);
  out.write_at(0, header(static_cast<uint32_t>(crc), static_cast<uint32_t>(csize)));
  out.commit();
  return kZipOk;
}

}  // namespace arven
