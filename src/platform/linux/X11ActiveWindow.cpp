#include "platform/linux/X11ActiveWindow.h"

#include <cstdlib>
#include <cstring>
#include <memory>

namespace parlino {

namespace {

template <typename T> using Reply = std::unique_ptr<T, decltype(&std::free)>;

template <typename T> Reply<T> reply(T *value)
{
    return Reply<T>(value, &std::free);
}

} // namespace

X11ActiveWindow::X11ActiveWindow() = default;

X11ActiveWindow::~X11ActiveWindow()
{
    if (m_connection)
        xcb_disconnect(m_connection);
}

bool X11ActiveWindow::ensureConnection()
{
    if (m_connection)
        return true;
    xcb_connection_t *connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection)) {
        xcb_disconnect(connection);
        return false;
    }
    m_connection = connection;
    m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    return true;
}

xcb_atom_t X11ActiveWindow::atom(const char *name)
{
    const auto answer = reply(xcb_intern_atom_reply(
        m_connection, xcb_intern_atom(m_connection, 0, uint16_t(std::strlen(name)), name), nullptr));
    return answer ? answer->atom : xcb_atom_t(XCB_ATOM_NONE);
}

QByteArray X11ActiveWindow::property(xcb_window_t window, xcb_atom_t name, xcb_atom_t type)
{
    const auto answer = reply(
        xcb_get_property_reply(m_connection, xcb_get_property(m_connection, 0, window, name, type, 0, 1024), nullptr));
    if (!answer || answer->type == XCB_ATOM_NONE)
        return {};
    return QByteArray(static_cast<const char *>(xcb_get_property_value(answer.get())),
                      xcb_get_property_value_length(answer.get()));
}

xcb_window_t X11ActiveWindow::activeWindow()
{
    const QByteArray active = property(m_root, atom("_NET_ACTIVE_WINDOW"), XCB_ATOM_WINDOW);
    if (active.size() >= qsizetype(sizeof(xcb_window_t))) {
        xcb_window_t window = 0;
        std::memcpy(&window, active.constData(), sizeof window);
        if (window != XCB_WINDOW_NONE)
            return window;
    }
    const auto focus = reply(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    return focus ? focus->focus : xcb_window_t(XCB_WINDOW_NONE);
}

QStringList X11ActiveWindow::activeWindowClass()
{
    if (!ensureConnection())
        return {};
    const xcb_window_t window = activeWindow();
    if (window == XCB_WINDOW_NONE || window == XCB_INPUT_FOCUS_POINTER_ROOT)
        return {};
    // WM_CLASS holds two strings, each ending in a zero byte: the instance and the class.
    const QByteArray wmClass = property(window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING);
    QStringList names;
    for (const QByteArray &part : wmClass.split('\0')) {
        if (!part.isEmpty())
            names << QString::fromLocal8Bit(part);
    }
    return names;
}

std::optional<qint64> X11ActiveWindow::activeWindowProcessId()
{
    if (!ensureConnection())
        return std::nullopt;
    const xcb_window_t window = activeWindow();
    if (window == XCB_WINDOW_NONE || window == XCB_INPUT_FOCUS_POINTER_ROOT)
        return std::nullopt;
    const QByteArray pid = property(window, atom("_NET_WM_PID"), XCB_ATOM_CARDINAL);
    if (pid.size() < qsizetype(sizeof(quint32)))
        return std::nullopt;
    quint32 value = 0;
    std::memcpy(&value, pid.constData(), sizeof value);
    return qint64(value);
}

} // namespace parlino
