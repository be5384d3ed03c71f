#include "platform/linux/AtSpiTextReader.h"

#include "core/Logging.h"
#include "platform/linux/AccessibilityStatus.h"

#include <atspi/atspi.h>

namespace parlino {

namespace {

// A hung application must not freeze the capture; AT-SPI's own default is 25 seconds.
constexpr int callTimeoutMs = 400;
// Bounds of the search for the focused element in the active window.
constexpr int searchDepth = 40;
constexpr int searchBudget = 3000;

AtspiAccessible *accessible(void *object)
{
    return static_cast<AtspiAccessible *>(object);
}

// Takes a GError out parameter's content, so no error is leaked or left set.
bool failed(GError *&error)
{
    if (!error)
        return false;
    g_clear_error(&error);
    return true;
}

bool hasState(AtspiAccessible *object, AtspiStateType state)
{
    AtspiStateSet *states = atspi_accessible_get_state_set(object);
    if (!states)
        return false;
    const bool contains = atspi_state_set_contains(states, state);
    g_object_unref(states);
    return contains;
}

bool belongsTo(AtspiAccessible *object, std::optional<qint64> processId)
{
    if (!processId)
        return true;
    GError *error = nullptr;
    const guint pid = atspi_accessible_get_process_id(object, &error);
    return !failed(error) && qint64(pid) == *processId;
}

// Depth-first search for the focused descendant; returns a new reference or null.
AtspiAccessible *findFocused(AtspiAccessible *object, int depth, int &budget)
{
    if (--budget < 0 || depth > searchDepth)
        return nullptr;
    if (hasState(object, ATSPI_STATE_FOCUSED))
        return static_cast<AtspiAccessible *>(g_object_ref(object));
    // Lists and tables with many rows manage their own children; their focus is reported on them.
    if (hasState(object, ATSPI_STATE_MANAGES_DESCENDANTS))
        return nullptr;
    GError *error = nullptr;
    const gint children = atspi_accessible_get_child_count(object, &error);
    if (failed(error))
        return nullptr;
    for (gint i = 0; i < children && budget >= 0; ++i) {
        AtspiAccessible *child = atspi_accessible_get_child_at_index(object, i, &error);
        if (failed(error) || !child)
            continue;
        AtspiAccessible *found = findFocused(child, depth + 1, budget);
        g_object_unref(child);
        if (found)
            return found;
    }
    return nullptr;
}

// The focused element in the active window of the applications owned by `processId` (any when absent).
AtspiAccessible *searchFocused(std::optional<qint64> processId)
{
    AtspiAccessible *desktop = atspi_get_desktop(0);
    if (!desktop)
        return nullptr;
    AtspiAccessible *found = nullptr;
    int budget = searchBudget;
    GError *error = nullptr;
    const gint applications = atspi_accessible_get_child_count(desktop, &error);
    for (gint a = 0; !failed(error) && a < applications && !found; ++a) {
        AtspiAccessible *application = atspi_accessible_get_child_at_index(desktop, a, &error);
        if (failed(error) || !application)
            continue;
        if (belongsTo(application, processId)) {
            const gint windows = atspi_accessible_get_child_count(application, &error);
            for (gint w = 0; !failed(error) && w < windows && !found; ++w) {
                AtspiAccessible *window = atspi_accessible_get_child_at_index(application, w, &error);
                if (failed(error) || !window)
                    continue;
                if (hasState(window, ATSPI_STATE_ACTIVE))
                    found = findFocused(window, 0, budget);
                g_object_unref(window);
            }
        }
        g_object_unref(application);
    }
    g_object_unref(desktop);
    return found;
}

std::optional<QString> textBetween(AtspiText *text, gint start, gint end)
{
    GError *error = nullptr;
    gchar *characters = atspi_text_get_text(text, start, end, &error);
    if (failed(error) || !characters)
        return std::nullopt;
    QString result = QString::fromUtf8(characters);
    g_free(characters);
    return result;
}

class AtSpiElement final : public AccessibilityTextSource::Element {
public:
    explicit AtSpiElement(AtspiAccessible *object)
        : m_text(atspi_accessible_get_text_iface(object))
    {
    }
    ~AtSpiElement() override
    {
        if (m_text)
            g_object_unref(m_text);
    }
    AtSpiElement(const AtSpiElement &) = delete;
    AtSpiElement &operator=(const AtSpiElement &) = delete;

    std::optional<QString> selectedText() override
    {
        if (!m_text)
            return std::nullopt;
        GError *error = nullptr;
        const gint selections = atspi_text_get_n_selections(m_text, &error);
        if (failed(error) || selections <= 0)
            return std::nullopt;
        QStringList parts;
        for (gint i = 0; i < selections; ++i) {
            AtspiRange *range = atspi_text_get_selection(m_text, i, &error);
            if (failed(error) || !range)
                continue;
            if (range->end_offset > range->start_offset) {
                if (const std::optional<QString> part = textBetween(m_text, range->start_offset, range->end_offset))
                    parts << *part;
            }
            g_free(range);
        }
        if (parts.isEmpty())
            return std::nullopt;
        return parts.join(u'\n');
    }

    std::optional<QString> value() override
    {
        if (!m_text)
            return std::nullopt;
        GError *error = nullptr;
        const gint count = atspi_text_get_character_count(m_text, &error);
        if (failed(error) || count <= 0)
            return std::nullopt;
        return textBetween(m_text, 0, count);
    }

private:
    AtspiText *m_text;
};

} // namespace

AtSpiTextReader::AtSpiTextReader(std::function<std::optional<qint64>()> activeWindowProcessId)
    : m_activeWindowProcessId(std::move(activeWindowProcessId))
{
    // Connecting now lets the focus be tracked from the start; when the bus is off it is tried
    // again at the first capture.
    if (AccessibilityStatus::isEnabled())
        ensureConnected();
}

AtSpiTextReader::~AtSpiTextReader()
{
    if (m_listener) {
        atspi_event_listener_deregister(static_cast<AtspiEventListener *>(m_listener), "object:state-changed:focused",
                                        nullptr);
        g_object_unref(m_listener);
    }
    if (m_focused)
        g_object_unref(m_focused);
}

bool AtSpiTextReader::ensureConnected()
{
    if (m_connected)
        return true;
    if (atspi_init() < 0) {
        PLOG(lcPlatform) << "⚠️ Could not connect to the accessibility bus";
        return false;
    }
    atspi_set_timeout(callTimeoutMs, -1);
    AtspiEventListener *listener =
        atspi_event_listener_new([](AtspiEvent *event, void *self) { onFocusEvent(event, self); }, this, nullptr);
    GError *error = nullptr;
    if (!atspi_event_listener_register(listener, "object:state-changed:focused", &error)) {
        PLOG(lcPlatform) << "⚠️ Could not follow the keyboard focus: "
                         << (error ? error->message : "unknown error");
        g_clear_error(&error);
    }
    m_listener = listener;
    m_connected = true;
    return true;
}

void AtSpiTextReader::onFocusEvent(void *eventPointer, void *selfPointer)
{
    auto *event = static_cast<AtspiEvent *>(eventPointer);
    auto *self = static_cast<AtSpiTextReader *>(selfPointer);
    if (event->source) {
        if (event->detail1) {
            if (self->m_focused)
                g_object_unref(self->m_focused);
            self->m_focused = g_object_ref(event->source);
        } else if (self->m_focused == event->source) {
            g_object_unref(self->m_focused);
            self->m_focused = nullptr;
        }
    }
    g_boxed_free(ATSPI_TYPE_EVENT, event);
}

bool AtSpiTextReader::isProcessTrusted()
{
    return AccessibilityStatus::isEnabled();
}

std::unique_ptr<AccessibilityTextSource::Element> AtSpiTextReader::focusedElement()
{
    if (!ensureConnected())
        return nullptr;
    const std::optional<qint64> processId = m_activeWindowProcessId ? m_activeWindowProcessId() : std::nullopt;
    AtspiAccessible *tracked = accessible(m_focused);
    if (tracked && hasState(tracked, ATSPI_STATE_FOCUSED) && belongsTo(tracked, processId))
        return std::make_unique<AtSpiElement>(tracked);
    // The focus moved before this object listened, or to an application that publishes nothing.
    AtspiAccessible *found = searchFocused(processId);
    if (!found)
        return nullptr;
    auto element = std::make_unique<AtSpiElement>(found);
    g_object_unref(found);
    return element;
}

} // namespace parlino
