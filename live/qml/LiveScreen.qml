import QtQuick
import Oxelo

// The live screen: the preview in the video rectangle, the grid, both rows of
// buttons, the battery, info and lock labels, the focus square, the cover and
// the notices. Every value and every decision comes from `screen`; this only
// lays out, draws and forwards.
Rectangle {
    id: root
    objectName: "liveScreen"
    property var screen
    readonly property var layout: screen.layout
    color: "black"
    focus: true

    onWidthChanged: screen.setViewSize(width, height)
    onHeightChanged: screen.setViewSize(width, height)
    Component.onCompleted: screen.setViewSize(width, height)
    Keys.onPressed: (event) => {
        if (event.key === Qt.Key_VolumeUp || event.key === Qt.Key_VolumeDown) {
            screen.volumeKeyPressed()
            event.accepted = true
        }
    }

    // The live screen in its own orientation; turned in a window of the
    // other shape.
    Item {
        id: stage
        width: layout.rotated ? root.height : root.width
        height: layout.rotated ? root.width : root.height
        anchors.centerIn: parent
        rotation: layout.rotated ? 90 : 0

        Item {
            id: video
            objectName: "videoRect"
            x: layout.video.x; y: layout.video.y
            width: layout.video.width; height: layout.video.height

            PreviewItem { anchors.fill: parent; screen: root.screen }
            Repeater {
                model: screen.showsGrid ? layout.grid : []
                Rectangle {
                    color: "white"; opacity: 0.3
                    x: modelData.x; y: modelData.y; width: modelData.width; height: modelData.height
                }
            }
            // A tap taken by a button or the panel above is theirs alone:
            // each tap handler here grabs its point exclusively on the press.
            TapHandler {
                gesturePolicy: TapHandler.ReleaseWithinBounds
                onTapped: (point) => screen.tap(point.position.x, point.position.y)
                onLongPressed: screen.longPress(1, point.position.x, point.position.y)
            }
            PinchHandler {
                target: null
                property real lastScale: 1.0
                onActiveChanged: screen.pinch(active ? 1 : 3, active ? 1.0 : lastScale)
                onActiveScaleChanged: { lastScale = activeScale; if (active) screen.pinch(2, activeScale) }
            }

            Repeater {
                // close, camera, mirror, beauty, torch, wifi; record, snapshot,
                // settings.
                model: 9
                LiveButton {
                    objectName: ["closeButton", "cameraButton", "mirrorButton", "beautyButton",
                                 "torchButton", "wifiButton", "recordButton", "snapshotButton",
                                 "settingsButton"][index]
                    readonly property var place: layout.buttons[index]
                    readonly property bool inBottomRow: index >= 6
                    x: place.x; y: place.y
                    look: screen.buttons[index]
                    fontSize: [26, 26, 26, 24, 30, 10, 30, 30, 26][index]
                    selectedGlyph: ["", "", "\u21C4", "\u273F", "\u26A1", "", "\u25CF", "", ""][index]
                    selectedColor: index === 4 ? "yellow" : index === 6 ? "red" : "white"
                    visible: !look.hidden && !(inBottomRow && screen.bottomRow.hidden)
                    onPressed: screen.press(index)
                }
            }
            Text {
                objectName: "batteryIcon"
                readonly property var place: layout.batteryIcon
                readonly property int iconClass: screen.battery.iconClass
                visible: !screen.battery.hidden && iconClass >= 0 && iconClass <= 2
                text: ["\u26A1", "\u25AD", "\u25AE"][iconClass] || ""
                color: iconClass === 1 ? "red" : "white"
                font.pixelSize: 22
                x: place.x; y: place.y; width: place.width; height: place.height
                horizontalAlignment: Text.AlignHCenter; verticalAlignment: Text.AlignVCenter
            }
            Text {
                objectName: "infoLabel"
                visible: screen.hasInfoLabel
                text: screen.infoText
                color: "white"; opacity: 0.8
                font.italic: true; font.pixelSize: layout.infoFontSize
                fontSizeMode: Text.HorizontalFit; minimumPixelSize: layout.infoFontSize / 2
                x: layout.infoLabel.x; y: layout.infoLabel.y
                width: layout.infoLabel.width; height: layout.infoLabel.height
            }
            Rectangle {
                objectName: "lockLabel"
                visible: !screen.lockLabel.hidden
                color: screen.lockLabel.level === 1 ? "yellow" : "orange"
                radius: 3
                width: lockText.implicitWidth + layout.lockPaddingWidth
                height: lockText.implicitHeight + layout.lockPaddingHeight
                x: layout.lockCenterX - width / 2; y: layout.lockCenterY - height / 2
                Text {
                    id: lockText
                    anchors.centerIn: parent
                    text: qsTrId("V_AEAF_LOCK")
                    font.pixelSize: layout.lockFontSize
                    color: "black"
                }
            }
            // The settings panel, once the settings button made it.
            Loader {
                active: !!screen.settingsPanel
                sourceComponent: SettingsPanel {
                    panel: screen.settingsPanel; screen: root.screen
                    areaWidth: video.width; areaHeight: video.height
                }
            }
        }

        FocusSquare { look: screen.focusSquare }

        Rectangle {
            objectName: "cover"
            anchors.fill: parent
            color: "black"
            visible: screen.cover.shown
            opacity: 0
            onVisibleChanged: if (visible) fadeIn.restart()
            NumberAnimation on opacity { id: fadeIn; from: 0; to: 1; duration: 500; running: false }
            Text {
                objectName: "watermark"
                visible: screen.cover.image !== ""
                anchors.centerIn: parent
                text: "Oxelo"
                color: "#505050"
                font.pixelSize: Math.min(parent.width, parent.height) / 6
            }
            TapHandler { onTapped: screen.coverTapped() }
        }

        Notice { screen: root.screen }
    }
}
