#include "prep/working_copies.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <fstream>
#include <map>
#include <vector>

#include "core/session.h"
#include "prep/packaging.h"
#include "stores/db.h"

namespace arven {

namespace fs = std::filesystem;

namespace {

bool same_bytes(const fs::path& a, const fs::path& b) {
  std::error_code ec1, ec2;
  if (fs::file_size(a, ec1) != fs::file_size(b, ec2) || ec1 || ec2) return false;
  std::ifstream fa(a, std::ios::binary), fb(b, std::ios::binary);
  std::vector<char> ba(1 << 16), bb(1 << 16);
  while (fa && fb) {
    fa.read(ba.data(), static_cast<std::streamsize>(ba.size()));
    fb.read(bb.data(), static_cast<std::streamsize>(bb.size()));
    if (fa.gcount() != fb.gcount() || !std::equal(ba.begin(), ba.begin() + fa.gcount(), bb.begin()))
      return false;
  }
  return fa.eof() && fb.eof();
}

// Operation ID -> (name, Last_Updated) of a store's Operations.
std::map<int64_t, std::pair<std::string, std::string>> operation_stamps(const fs::path& store) {
  std::map<int64_t, std::pair<std::string, std::string>> out;
  Db db = Db::open(store);
  auto rows =
      db.query("SELECT \"Operation ID\", \"Operation Name\", \"Last_Updated\" FROM \"Operations\"");
  while (rows.next()) out[rows.get(0).as_int()] = {rows.get(1).as_text(), rows.get(2).as_text()};
  return out;
}

std::vector<std::string> edited_operations(const fs::path& master, const fs::path& copy) {
  auto now = operation_stamps(master);
  auto then = operation_stamps(copy);
  std::vector<std::string> out;
  for (const auto& [id, m] : now) {
    auto c = then.find(id);
    if (c == then.end() || m.second > c->second.second)
      out.push_back(std::to_string(id) + " " + m.first);
  }
  return out;
}

std::string name_of(const WorkingCopy& c) {
  return c.master.filename().string();
}

}  // namespace

std::vector<WorkingCopy> working_copies(bool list_operations) {
  const Session& s = session();
  std::vector<WorkingCopy> out(2);
  out[0].master = s.ops_db_path;
  out[0].copy = prepro_ops_master_path();
  out[1].master = s.rvc_db_path;
  out[1].copy = prepro_rvcs_master_path();
  for (auto& c : out) {
    std::error_code ec;
    c.missing = !fs::is_regular_file(c.copy, ec);
    c.master_time = file_time(c.master);
    c.copy_time = c.missing ? "" : file_time(c.copy);
    if (c.missing) continue;
    auto master_written = fs::last_write_time(c.master, ec);
    if (ec) continue;  // no master: nothing newer than the copy
    c.stale = master_written > fs::last_write_time(c.copy, ec) && !same_bytes(c.master, c.copy);
  }
  if (list_operations && out[0].stale) {
    try {
      out[0].edited_operations = edited_operations(out[0].master, out[0].copy);
    } catch (const StoreError&) {
      // A store without Operations: the warning names the file alone.
    }
  }
  return out;
}

bool working_copies_outdated(const std::vector<WorkingCopy>& copies) {
  for (const auto& c : copies)
    if (c.missing || c.stale) return true;
  return false;
}

std::string working_copies_line(const std::vector<WorkingCopy>& copies) {
  std::string missing, stale, made;
  for (const auto& c : copies) {
    if (c.missing) missing += (missing.empty() ? "" : ", ") + name_of(c);
    if (c.stale)
      stale += (stale.empty() ? "" : "; ") + name_of(c) + " changed " + c.master_time +
               ", copied " + c.copy_time;
    if (!c.missing && c.copy_time > made) made = c.copy_time;
  }
  if (!missing.empty())
    return "No working copy of " + missing + " yet: press \"Copy DBs\" before a run.";
  if (!stale.empty())
    return "The masters have changed since \"Copy DBs\" made the working copies (" + stale +
           "): a run leaves those changes out until \"Copy DBs\" is pressed again.";
  return "Working copies of the masters made by \"Copy DBs\" on " + made +
         "; the masters have not changed since.";
}

std::string working_copies_warning(const std::vector<WorkingCopy>& copies) {
  if (!working_copies_outdated(copies)) return "";
  std::string text = "The working copies that a run uses are not those of the master stores now:\n";
  for (const auto& c : copies) {
    if (c.missing) text += "- " + name_of(c) + ": no working copy yet.\n";
    if (!c.stale) continue;
    text += "- " + name_of(c) + " changed " + c.master_time + ", copied " + c.copy_time;
    const auto& ops = c.edited_operations;
    if (!ops.empty()) {
      text += "; operations edited since: ";
      for (size_t i = 0; i < ops.size() && i < 5; ++i) text += (i ? ", " : "") + ops[i];
      if (ops.size() > 5) text += " and " + std::to_string(ops.size() - 5) + " more";
    }
    text += ".\n";
  }
  return text +
         "A run works from the working copies: it leaves these changes out and stamps nothing "
         "new for them. Press \"Copy DBs\" first to include them.\n\nStart the run with the "
         "working copies as they are?";
}

std::string file_time(const fs::path& p) {
  std::error_code ec;
  auto t = fs::last_write_time(p, ec);
  if (ec) return "";
  std::time_t s = std::chrono::system_clock::to_time_t(
      std::chrono::time_point_cast<std::chrono::system_clock::duration>(
          std::chrono::file_clock::to_sys(t)));
  std::tm local{};
  localtime_r(&s, &local);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return text;
}

}  // namespace arven
