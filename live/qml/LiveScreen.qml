import QtQuick
import Oxelo

// The live screen: the preview in the video rectangle, the grid, both rows of
// buttons, the battery, info and lock labels, and the idle cover. Every value
// and every decision comes from `screen`; this only lays out and forwards.
Rectangle {
    id: root
    property var screen
    color: "black"

    onWidthChanged: screen.setViewSize(width, height)
    onHeightChanged: screen.setViewSize(width, height)
    Component.onCompleted: screen.setViewSize(width, height)

    Item {
        id: video
        objectName: "videoRect"
        x: screen.videoRect.x
        y: screen.videoRect.y
        width: screen.videoRect.width
        height: screen.videoRect.height

        PreviewItem {
            anchors.fill: parent
            screen: root.screen
        }
        Repeater {
            model: screen.showGrid ? 4 : 0
            Rectangle {
                color: "white"
                opacity: 0.3
                x: index < 2 ? video.width * (index + 1) / 3 : 0
                y: index < 2 ? 0 : video.height * (index - 1) / 3
                width: index < 2 ? 1 : video.width
                height: index < 2 ? video.height : 1
            }
        }
        TapHandler {
            onTapped: (point) => screen.tap(point.position.x, point.position.y)
            onLongPressed: screen.longPress(point.position.x, point.position.y)
        }
        PinchHandler {
            target: null
            onActiveChanged: if (active) screen.pinch(1, 1.0)
            onActiveScaleChanged: screen.pinch(active ? 2 : 3, activeScale)
        }

        Row {
            objectName: "topRow"
            layoutDirection: Qt.RightToLeft
            spacing: screen.buttonSpace
            anchors.top: parent.top
            anchors.topMargin: screen.topMargin
            anchors.right: parent.right
            anchors.rightMargin: screen.rowMargin
            LiveButton { objectName: "closeButton"; glyph: "\u2715"; onPressed: screen.closePressed() }
            LiveButton { objectName: "cameraButton"; glyph: "\u21BB"; onPressed: screen.cameraPressed() }
            LiveButton {
                objectName: "mirrorButton"; glyph: "\u21C6"; selectedGlyph: "\u21C4"
                selected: screen.mirrorOn; onPressed: screen.mirrorPressed()
            }
            LiveButton {
                objectName: "beautyButton"; glyph: "\u2740"; selectedGlyph: "\u273F"; fontSize: 24
                selected: screen.beautyOn; onPressed: screen.beautyPressed()
            }
            LiveButton {
                objectName: "torchButton"; glyph: "\u03DF"; selectedGlyph: "\u26A1"; fontSize: 30
                visible: screen.torchVisible; enabled: screen.torchEnabled
                selected: screen.torchLevel >= 1; selectedColor: "yellow"
                opacity: screen.torchLevel >= 1 ? screen.torchLevel / 5.0 : 1.0
                onPressed: screen.torchPressed()
            }
            LiveButton {
                objectName: "wifiButton"; glyph: "\u25A0".repeat(Math.max(screen.wifiLevel, 1))
                fontSize: 9; opacity: 0.8; visible: screen.wifiVisible
                onPressed: wifiNote.open(screen.wifiLevel === 5 ? qsTrId("V_WIFI_GOOD") : qsTrId("V_WIFI_BAD"))
            }
        }
        Text {
            objectName: "batteryIcon"
            visible: screen.batteryGlyph !== ""
            text: screen.batteryGlyph
            color: screen.batteryRed ? "red" : "white"
            font.pixelSize: 22
            x: screen.rowMargin
            y: screen.topMargin + (44 - height) / 2
        }
        Text {
            objectName: "infoLabel"
            visible: screen.showInfo
            text: screen.statsLine
            color: "white"
            opacity: 0.8
            font.italic: true
            font.pixelSize: screen.tablet ? 22 : 16
            fontSizeMode: Text.HorizontalFit
            minimumPixelSize: font.pixelSize / 2
            x: screen.rowMargin
            y: screen.tablet ? 70 : 45
            width: screen.tablet ? 400 : 300
            height: 25
        }
        Row {
            id: bottomRow
            objectName: "bottomRow"
            visible: true
            layoutDirection: Qt.RightToLeft
            spacing: screen.buttonSpace
            anchors.bottom: parent.bottom
            anchors.bottomMargin: screen.bottomMargin
            anchors.right: parent.right
            anchors.rightMargin: screen.rowMargin
            LiveButton {
                objectName: "recordButton"; glyph: "\u25CB"; selectedGlyph: "\u25CF"; fontSize: 30
                selected: screen.recording; selectedColor: "red"; onPressed: screen.recordPressed()
            }
            LiveButton { objectName: "snapshotButton"; glyph: "\u25CE"; fontSize: 30; onPressed: screen.snapshotPressed() }
        }
        Rectangle {
            objectName: "lockLabel"
            visible: screen.lockLevel !== 0
            color: screen.lockLevel === 1 ? "yellow" : "orange"
            radius: 3
            width: lockText.implicitWidth + 12
            height: lockText.implicitHeight + 6
            x: (video.width - width) / 2
            y: bottomRow.y + 22 - height / 2 - (screen.landscape ? 0 : 40)
            Text {
                id: lockText
                anchors.centerIn: parent
                text: qsTrId("V_AEAF_LOCK")
                font.pixelSize: 15
                color: "black"
            }
        }
    }

    Rectangle {
        id: wifiNote
        property alias text: noteText.text
        function open(message) { noteText.text = message; visible = true }
        visible: false
        anchors.centerIn: parent
        width: Math.min(parent.width - 40, noteText.implicitWidth + 40)
        height: noteText.implicitHeight + 70
        radius: 8
        color: "#f0303030"
        Text { id: noteText; color: "white"; anchors.top: parent.top; anchors.topMargin: 16; anchors.horizontalCenter: parent.horizontalCenter; width: parent.width - 24; wrapMode: Text.Wrap; horizontalAlignment: Text.AlignHCenter }
        Text { text: qsTrId("A_OK"); color: "#2ca7ea"; font.bold: true; anchors.bottom: parent.bottom; anchors.bottomMargin: 12; anchors.horizontalCenter: parent.horizontalCenter }
        TapHandler { onTapped: wifiNote.visible = false }
    }

    Rectangle {
        objectName: "cover"
        anchors.fill: parent
        color: "black"
        visible: screen.covered
        opacity: visible ? 1.0 : 0.0
        Behavior on opacity { NumberAnimation { duration: 500 } }
        Text {
            objectName: "watermark"
            visible: screen.coverImage
            anchors.centerIn: parent
            text: "Oxelo"
            color: "#505050"
            font.pixelSize: Math.min(parent.width, parent.height) / 6
        }
        TapHandler { onTapped: screen.coverTapped() }
    }
}
