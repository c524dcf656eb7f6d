#pragma once

#include <filesystem>

namespace arven {

class Ui;

// Zips one store into a new archive, the store at the archive's top level
// under its file name, deflated at the fastest level on every core: the
// store is cut into pieces, each piece deflated apart and ended on a byte
// boundary, and the pieces joined in order into one deflate stream that any
// unzip reads. The archive replaces the old one as base/replace_file.h does.
// Returns kZipOk or a kZip* code of settings/zip_files.h, and tells the user
// of a failure as the zip facility does, except an archive that cannot be
// written: that throws FileWriteError for the command to report.
int zip_store_on_all_cores(Ui& ui, const std::filesystem::path& store,
                           const std::filesystem::path& zip);

}  // namespace arven
