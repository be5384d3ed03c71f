#pragma once

#include <QString>

namespace parlino {

// One eSpeak NG voice as the settings window lists it: a language ("de", "en-us", "fr") or a variant
// that changes how any language sounds ("f3", "Annie"); the offline voice is a language, optionally
// followed by "+" and a variant ("en-us+f3").
struct OfflineVoice {
    QString name;        // what eSpeak NG loads and the "offlineVoice" setting keeps: the voice's file name
    QString displayName; // "English (America)", "Annie"
};

} // namespace parlino
