#pragma once

#include "core/Error.h"

namespace parlino {

// A library file that could not be copied, read, decoded or written; the description names the file.
class LibraryError final : public Error {
public:
    using Error::Error;
};

} // namespace parlino
