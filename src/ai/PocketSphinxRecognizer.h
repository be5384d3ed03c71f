#pragma once

#include "ai/SpeechRecognizer.h"

#include <QFuture>
#include <QString>

struct ps_decoder_s;
struct cmd_ln_s;

namespace parlino {

// Recognises the question on this machine with PocketSphinx and its US English model, reporting the
// best reading so far while the question is spoken. Less accurate than the service, but needs no key
// and no network. The decoder is loaded at the first question (or ahead of it by preload()) and kept.
class PocketSphinxRecognizer final : public SpeechRecognizer {
    Q_OBJECT
public:
    // modelFolder holds the acoustic model "en-us/", "en-us.lm.bin" and "cmudict-en-us.dict".
    explicit PocketSphinxRecognizer(QString modelFolder = defaultModelFolder(), QObject *parent = nullptr);
    ~PocketSphinxRecognizer() override;

    // PARLINO_POCKETSPHINX_MODEL_DIR when set, else the folder of Debian's pocketsphinx-en-us.
    [[nodiscard]] static QString defaultModelFolder();

    [[nodiscard]] QString name() const override { return QStringLiteral("offline"); }
    // The model files are installed.
    [[nodiscard]] bool isAvailable() const override;
    // Loads the decoder on a worker thread (it takes over half a second), so the first question does
    // not wait for it; begin() takes it over, waiting only for a load still under way.
    void preload();

    void begin() override;
    void feed(std::span<const float> samples) override;
    QCoro::Task<QString> finish() override;
    void cancel() override;

private:
    struct Decoder {
        cmd_ln_s *config = nullptr;
        ps_decoder_s *decoder = nullptr;
    };
    [[nodiscard]] static Decoder loadDecoder(const QString &modelFolder);
    [[nodiscard]] QString hypothesis() const;

    QString m_modelFolder;
    cmd_ln_s *m_config = nullptr;
    ps_decoder_s *m_decoder = nullptr;
    QFuture<Decoder> m_loading;
    bool m_inUtterance = false;
    QString m_lastPartial;
};

} // namespace parlino
