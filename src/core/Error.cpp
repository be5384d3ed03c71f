#include "core/Error.h"

namespace parlino {

Error::Error(QString description)
    : m_description(std::move(description))
    , m_utf8(m_description.toUtf8())
{
}

} // namespace parlino
