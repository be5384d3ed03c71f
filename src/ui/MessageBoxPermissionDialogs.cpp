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
    QMessageBox box;
    box.setIcon(QMessageBox::Information);
    box.setWindowTitle(QStringLiteral("Parlino"));
    box.setText(QStringLiteral("Voice Q&A Permissions"));
    box.setInformativeText(QStringLiteral("Parlino needs two things for the Ask Question feature:\n\n"
                                          "• Microphone access - To hear your questions\n"
                                          "• Speech Recognition - To transcribe your voice\n\n"
                                          "Would you like to enable this feature now?"));
    // What is missing here, and where it is fixed.
    QStringList missing;
    if (!microphoneGranted)
        missing << QStringLiteral("No microphone was found: connect one and choose it as the input device in "
                                  "your desktop's sound settings.");
    if (!speechGranted)
        missing << QStringLiteral("No speech recognizer can work: add an OpenAI key in Settings, or install the "
                                  "offline recognizer (pocketsphinx-en-us) and choose it in Settings.");
    box.setDetailedText(missing.join(u'\n'));
    QPushButton *sound = nullptr;
    QPushButton *recognizer = nullptr;
    if (!microphoneGranted)
        sound = box.addButton(QStringLiteral("Open Sound Settings"), QMessageBox::AcceptRole);
    if (!speechGranted)
        recognizer = box.addButton(QStringLiteral("Choose Speech Recognizer"), QMessageBox::AcceptRole);
    box.addButton(QStringLiteral("Not Now"), QMessageBox::RejectRole);
    box.setDefaultButton(sound ? sound : recognizer);
    box.exec();
    if (sound && box.clickedButton() == sound)
        return Answer::openSoundSettings;
    if (recognizer && box.clickedButton() == recognizer)
        return Answer::chooseRecognizer;
    return Answer::later;
}

} // namespace parlino
