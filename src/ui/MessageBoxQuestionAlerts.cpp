#include "ui/MessageBoxQuestionAlerts.h"

#include "core/Logging.h"

#include <QMessageBox>

namespace parlino {

void MessageBoxQuestionAlerts::showQuestionError(const QString &message)
{
    PLOG(lcUi) << "❌ Question Error: " << message;
    auto *box = new QMessageBox;
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setObjectName(QStringLiteral("questionErrorBox"));
    box->setIcon(QMessageBox::Warning);
    box->setWindowTitle(QStringLiteral("Parlino"));
    box->setText(QStringLiteral("Question Error"));
    box->setInformativeText(message);
    box->addButton(QStringLiteral("OK"), QMessageBox::AcceptRole);
    box->setWindowModality(Qt::ApplicationModal);
    // Above the floating player, which stays on top of everything.
    box->setWindowFlag(Qt::WindowStaysOnTopHint);
    box->open();
}

} // namespace parlino
