import QtQuick

// A picture that changes to its found form by a half-second cross-fade.
Item {
    id: picture
    property url source
    property url foundSource
    property bool found: false

    Image {
        anchors.fill: parent
        source: picture.source
        sourceSize: Qt.size(width, height)
        fillMode: Image.PreserveAspectFit
        opacity: 1 - found.opacity
    }
    Image {
        id: found
        anchors.fill: parent
        source: picture.foundSource
        sourceSize: Qt.size(width, height)
        fillMode: Image.PreserveAspectFit
        opacity: picture.found ? 1 : 0
        Behavior on opacity { NumberAnimation { duration: 500 } }
    }
}
