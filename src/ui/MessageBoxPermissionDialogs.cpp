#include "ui/MessageBoxPermissionDialogs.h"

#include <QMessageBox>
#include <QPushButton>

namespace parlino {

PermissionDialogs::Answer MessageBoxPermissionDialogs::askForAccessibility()
{
    QMessageBox box;
    box.setIcon(QMessageBox::Warning);
    box.setWindowTitle(QStringLiteral("Parlino"));
    box.setText(QStringLiteral("Accessibility Permission Required"));
    box.setInformativeText(
        QStringLiteral("Parlino needs Accessibility permission to read selected text from other applications.\n\n"
                       "Without this permission, the app cannot function.\n\n"
                       "Please turn on assistive technologies in Settings > Accessibility."));
    QPushButton *open = box.addButton(QStringLiteral("Open System Settings"), QMessageBox::AcceptRole);
    box.addButton(QStringLiteral("Quit"), QMessageBox::RejectRole);
    box.setDefaultButton(open);
    box.exec();
    return box.clickedButton() == open ? Answer::openSettings : Answer::quit;
}

PermissionDialogs::Answer MessageBoxPermissionDialogs::askForQuestionPermissions(bool microphoneGranted,
                                                                                 bool speechGranted)
{
    QStringList missing;
    if (!microphoneGranted)
        missing << QStringLiteral("• a microphone (no audio input device was found)");
    if (!speechGranted)
        missing << QStringLiteral("• speech recognition (no recogniser is installed)");
    QMessageBox box;
    box.setIcon(QMessageBox::Information);
    box.setWindowTitle(QStringLiteral("Parlino"));
    box.setText(QStringLiteral("Voice Questions Need More Permissions"));
    box.setInformativeText(QStringLiteral("To ask questions about what you are listening to, Parlino needs:\n\n")
                           + missing.join(u'\n') + QStringLiteral("\n\nReading aloud works without them."));
    box.addButton(QStringLiteral("OK"), QMessageBox::AcceptRole);
    box.exec();
    return Answer::later;
}

} // namespace parlino
