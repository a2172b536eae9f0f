#pragma once

#include "export/inspect/zip/byte_source.h"
#include "export/inspect/layer_list.h"

namespace kestrune {

/// Reads the table of layers of an ODB++ archive and the content of each layer. Reads only the
/// directory, the file `matrix/matrix`, and files `features` of at most 4 KiB: a larger one
/// certainly has an object, since the headings alone are shorter. Throws Failure when the archive
/// cannot be read. Uses at most 16 MiB of memory for any archive.
///
/// The archive's files may be in one top-level folder of any name. Paths are compared ignoring
/// case, and "\" is a separator like "/". An entry whose path has an empty part, ".", ".." or a
/// colon is ignored.
LayerList InspectArchive(const ByteSource& archive);

}  // namespace kestrune
