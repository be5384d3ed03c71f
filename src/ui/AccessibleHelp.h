#pragma once

#include <QString>
#include <QWidget>

namespace parlino {

// The control's help text is also its name for screen readers (and for tests that find controls the
// way a screen reader does).
inline void describe(QWidget *control, const QString &help)
{
    control->setToolTip(help);
    control->setAccessibleName(help);
}

} // namespace parlino
