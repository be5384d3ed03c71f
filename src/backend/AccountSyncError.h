#pragma once

#include "core/Error.h"

namespace parlino {

// A failed account link or account sync; description() is the text shown to the user.
class AccountSyncError final : public Error {
public:
    using Error::Error;
};

} // namespace parlino
