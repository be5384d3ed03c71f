#pragma once

#include "backend/ModelCatalogue.h"

#include <QMutex>
#include <QObject>
#include <QSet>
#include <QString>
#include <QStringList>

namespace parlino {

class Defaults;

// The speech provider and the model of each use, as the settings file holds them. A value the app
// does not know (a provider other than the three, a model the catalogue does not list for that use)
// reads as the default, with one warning per key for this object's life (the app makes one). A known
// but retired model reads as it is: it is replaced when the service refuses it (switchToSuccessor).
//
// Safe to use from any thread; the signals are emitted on the thread that made the change.
class ModelSettings final : public QObject {
    Q_OBJECT
public:
    static inline const QString openAISpeechProvider = QStringLiteral("openai-speech");
    static inline const QString openAIRealtimeProvider = QStringLiteral("openai-realtime");
    // eSpeak NG on this machine: no key, no network, no model.
    static inline const QString offlineProvider = QStringLiteral("offline");

    explicit ModelSettings(Defaults &defaults, QObject *parent = nullptr);
    ~ModelSettings() override;

    // "openai-speech" (POST /audio/speech), "openai-realtime" (the Realtime API) or "offline".
    [[nodiscard]] QString speechProvider() const;
    [[nodiscard]] QString speechModel() const;
    [[nodiscard]] QString realtimeSpeechModel() const;
    [[nodiscard]] QString chatModel() const;
    [[nodiscard]] QString transcriptionModel() const;
    [[nodiscard]] QString model(ModelRole role) const;
    // The model that speaks now: the realtime model under "openai-realtime", else the speech model.
    [[nodiscard]] QString activeSpeechModel() const;

    [[nodiscard]] static QString defaultModel(ModelRole role);
    [[nodiscard]] static QString settingsKey(ModelRole role);

    // For the settings window; false (and nothing stored) for a value it does not know.
    bool setSpeechProvider(const QString &provider);
    bool setModel(ModelRole role, const QString &model);

    // Called when the service refused retiredModel as retired. Stores its successor as that use's model
    // (for speech: the provider becomes "openai-realtime" with the successor as realtime model), logs
    // it and emits switchedToSuccessor. False, with nothing changed, when retiredModel has no successor
    // or is no longer the model in use, so a second refusal of requests that were already under way
    // neither switches nor notifies again.
    bool switchToSuccessor(ModelRole role, const QString &retiredModel);

Q_SIGNALS:
    // role is the use that was refused (speech, also when the successor is a realtime model).
    void switchedToSuccessor(parlino::ModelRole role, const QString &oldModel, const QString &newModel);
    // One of the provider or model keys changed, by this object or through the settings store.
    void changed();

private:
    // The stored value of key when it is one of allowed, else fallback (warning once for a stored value).
    [[nodiscard]] QString readChecked(const QString &key, const QStringList &allowed, const QString &fallback) const;

    Defaults &m_defaults;
    // Makes "is it still the model in use? then replace it" one step.
    QMutex m_switchMutex;
    mutable QMutex m_warnedMutex;
    mutable QSet<QString> m_warnedKeys;
};

} // namespace parlino
