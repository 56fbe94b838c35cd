import QtQuick
import QtQuick.Controls

// A round symbol button in the page's tint, at least 44 points for a finger.
ToolButton {
    id: button
    property url source
    property real size: 26
    implicitWidth: Math.max(44, size + 12)
    implicitHeight: implicitWidth
    display: AbstractButton.IconOnly
    icon.source: source
    icon.width: size
    icon.height: size
    icon.color: "transparent"  // the picture keeps its own colours
    opacity: enabled ? 1 : 0.35
    Accessible.name: text
}
