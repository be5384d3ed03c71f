#include "ui/QtSaveFileDialog.h"

#include <QDir>
#include <QFileDialog>
#include <QStandardPaths>

namespace parlino {

QtSaveFileDialog::~QtSaveFileDialog()
{
    delete m_dialog;
}

void QtSaveFileDialog::askForSaveLocation(const QString &suggestedFilename, const QString &message, Completion done)
{
    if (m_dialog)
        m_dialog->reject();

    // The music folder when the user has one, else home (never the folder the app was started in).
    QString folder = QStandardPaths::writableLocation(QStandardPaths::MusicLocation);
    if (!QDir(folder).exists())
        folder = QDir::homePath();
    auto *dialog = new QFileDialog(nullptr, message, QDir(folder).filePath(suggestedFilename),
                                   QStringLiteral("MP3 audio (*.mp3)"));
    m_dialog = dialog;
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setFileMode(QFileDialog::AnyFile);
    dialog->setDefaultSuffix(QStringLiteral("mp3"));
    dialog->setObjectName(QStringLiteral("saveFileDialog"));
    // The floating player stays above other windows; the dialog it opened must not end up under it.
    dialog->setWindowFlag(Qt::WindowStaysOnTopHint);
    QObject::connect(dialog, &QFileDialog::finished, dialog, [dialog, done = std::move(done)](int result) {
        const QStringList chosen = dialog->selectedFiles();
        if (result == QDialog::Accepted && !chosen.isEmpty())
            done(chosen.first());
        else
            done(std::nullopt);
    });
    // Modeless: the floating player keeps playing and answering while the user chooses.
    dialog->show();
    dialog->raise();
    dialog->activateWindow();
}

} // namespace parlino
