#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace arven {

// Backups of the two master stores (arven_operations.mdb and
// arven_rvcs.mdb of dbases/), each a folder dbases/backups/<date-time>/.

std::filesystem::path backups_folder();  // dbases/backups
// Copies both master stores into a new backup folder, named by the local
// date and time ("2026-11-23_16-05-09"). The folder is filled under a
// temporary name and renamed when both copies are whole, so a backup that is
// listed is complete. Returns its name.
std::string backup_master_stores();
// The backups, newest first: folders of backups_folder() that hold both stores.
std::vector<std::string> list_backups();
// Puts a backup's stores back in place of the master stores, each copied
// beside its target and renamed over it. Throws std::runtime_error for a
// name that is not a listed backup.
void restore_backup(const std::string& name);

}  // namespace arven
