#pragma once

#include "export/inspect/zip/byte_source.h"
#include "export/inspect/layer_list.h"

namespace kestrune {

/// Reads the table of layers of an ODB++ archive and what the archive holds of each. Reads the
/// directory, the file `matrix/matrix`, and files `features` of at most 4 KiB, which may hold
/// headings and no object. Throws Failure when the archive cannot be read; takes no more than 16
/// MiB of memory whatever the archive says.
///
/// All may lie in one folder of any name. Capital and small letters are the same, "\" separates as
/// "/" does. An entry whose path has an empty part, "." or ".." or a colon counts for nothing.
LayerList InspectArchive(const ByteSource& archive);

}  // namespace kestrune
