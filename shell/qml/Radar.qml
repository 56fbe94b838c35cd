import QtQuick

// The search's radar: three rings that grow from the middle and fade, one
// every two thirds of a second, behind the phone icon in a white disc.
Item {
    id: radar
    property bool running: false
    property color thumbnailColor: "white"
    property real thumbnailSide: 50

    Repeater {
        model: 3
        Rectangle {
            id: pulse
            anchors.fill: parent
            radius: height / 2
            color: Qt.rgba(92 / 255, 181 / 255, 217 / 255, 1)
            border.color: color
            border.width: 1
            scale: 0.2
            opacity: 0
            SequentialAnimation {
                running: radar.running && radar.visible
                loops: 1
                PauseAnimation { duration: index * 667 }
                ScriptAction { script: ring.start() }
            }
            ParallelAnimation {
                id: ring
                loops: Animation.Infinite
                NumberAnimation { target: pulse; property: "scale"; from: 0.2; to: 1; duration: 2000 }
                SequentialAnimation {
                    NumberAnimation { target: pulse; property: "opacity"; from: 1; to: 0.5; duration: 500 }
                    NumberAnimation { target: pulse; property: "opacity"; from: 0.5; to: 0.3; duration: 500 }
                    NumberAnimation { target: pulse; property: "opacity"; from: 0.3; to: 0; duration: 1000 }
                }
            }
            Connections {
                target: radar
                function onRunningChanged() {
                    if (!radar.running) { ring.stop(); pulse.opacity = 0 }
                }
            }
        }
    }
    Rectangle {
        anchors.centerIn: parent
        width: radar.thumbnailSide
        height: width
        radius: width / 2
        color: radar.thumbnailColor
        border.color: radar.thumbnailColor
        clip: true
        Image {
            anchors.fill: parent
            source: "images/phone-icon.svg"
            sourceSize: Qt.size(width, height)
        }
    }
}
