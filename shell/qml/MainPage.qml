import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The main page: the phone and the computer, the radar while the search
// runs, the state line, and the buttons for a new search, options, help and
// a connection (by address while searching, to the found computer after).
// What it shows and what the buttons do is the screen's (app.mainScreen).
Page {
    id: page
    objectName: "mainPage"
    property var screen: app.mainScreen
    readonly property bool portrait: width < height
    readonly property color tint: Qt.rgba(44 / 255, 167 / 255, 234 / 255, 1)
    // The system's palette decides light or dark: a dark window colour is
    // the dark style, and the page follows when the palette changes.
    readonly property bool dark: system.window.hslLightness < 0.5
    SystemPalette { id: system }
    signal helpRequested
    signal optionsRequested

    // A line by key, "%1" filled with the argument, or the argument after
    // the text; a text that is no key comes back as it is.
    function line(key, argument) {
        if (!key) return ""
        var text = qsTrId(key)
        if (text.indexOf("%1") >= 0) return text.arg(argument)
        return argument ? text + " " + argument : text
    }

    header: ToolBar {
        RowLayout {
            anchors.fill: parent
            IconButton {
                objectName: "refreshButton"
                source: "images/reload.svg"
                text: qsTrId("M_NEW_SEARCH")
                enabled: page.screen.buttonsEnabled
                onClicked: page.screen.refresh()
            }
            Label {
                text: "Oxelo"
                color: page.tint
                font.pixelSize: 20
                font.bold: true
                horizontalAlignment: Text.AlignHCenter
                Layout.fillWidth: true
            }
            IconButton {
                objectName: "optionsButton"
                source: "images/gear.svg"
                text: qsTrId("M_OPTIONS")
                onClicked: page.optionsRequested()
            }
        }
    }

    footer: ToolBar {
        RowLayout {
            anchors.fill: parent
            IconButton {
                objectName: "helpButton"
                source: "images/help.svg"
                text: qsTrId("M_HELP")
                onClicked: page.helpRequested()
            }
            Item { Layout.fillWidth: true }
            IconButton {
                objectName: "addButton"
                size: 30
                source: page.screen.playState ? "images/play.svg" : "images/plus.svg"
                text: page.screen.playState ? qsTrId("M_CONNECT") : qsTrId("M_MANUAL")
                enabled: page.screen.buttonsEnabled
                onClicked: page.screen.add()
                onPressAndHold: page.screen.addLongPressed()
            }
        }
    }

    Item {
        id: stage
        anchors.fill: parent
        anchors.margins: 8
        readonly property real radarSide: page.portrait ? height * 0.5 : width * 0.45

        Radar {
            id: radar
            objectName: "radar"
            width: stage.radarSide
            height: width
            x: page.portrait ? (stage.width - width) / 2 : 20
            y: page.portrait ? 0 : Math.max(0, stage.height / 2 - 30 - height / 2)
            running: page.screen.discovering
            thumbnailColor: page.dark ? Qt.rgba(0.1, 0.1, 0.1, 1) : "white"
            visible: page.screen.discovering
        }
        FadingPicture {
            objectName: "phonePicture"
            width: 100
            height: 100
            x: radar.x + (radar.width - width) / 2
            y: radar.y + (radar.height - height) / 2
            visible: !page.screen.discovering
            source: "images/phone.svg"
            foundSource: "images/phone-found.svg"
            found: page.screen.phoneFound
        }
        Label {
            objectName: "ownAddress"
            width: 160
            height: 25
            x: radar.x + (radar.width - width) / 2
            y: radar.y + radar.height / 2 + 45 - height / 2
            horizontalAlignment: Text.AlignHCenter
            verticalAlignment: Text.AlignVCenter
            text: page.screen.ownAddress
            visible: page.screen.discovering && text.length > 0
        }
        FadingPicture {
            id: computer
            objectName: "computerPicture"
            x: page.portrait ? (stage.width - width) / 2
                             : radar.x + radar.width + (stage.width - radar.x - radar.width - width) / 2
            y: page.portrait ? radar.y + radar.height : radar.y + (radar.height - height) / 2
            width: page.portrait ? 160 : Math.min(160 * 160 / 110, stage.width - radar.width - 40)
            height: page.portrait ? Math.max(0, stateLine.y - 20 - radar.y - radar.height) : 160
            source: "images/computer.svg"
            foundSource: "images/computer-found.svg"
            found: page.screen.computerFound
            TapHandler { onTapped: page.screen.openLiveScreen() }
        }
        Label {
            id: stateLine
            objectName: "stateLine"
            anchors.left: parent.left
            anchors.right: parent.right
            anchors.bottom: parent.bottom
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.Wrap
            font.pixelSize: 16
            text: page.line(page.screen.stateKey, page.screen.stateArgument)
            color: page.screen.stateIsError ? (page.dark ? "#ff453a" : "#ff3b30")
                                            : (page.dark ? Qt.rgba(235 / 255, 235 / 255, 245 / 255, 0.6)
                                                         : "#6d6d72")
        }
    }

    // The progress of a manual connection.
    Rectangle {
        objectName: "progress"
        anchors.fill: parent
        color: page.dark ? Qt.rgba(0.4, 0.4, 0.4, 0.4) : Qt.rgba(0, 0, 0, 0.4)
        visible: page.screen.hudKey.length > 0
        MouseArea { anchors.fill: parent }  // the screen below waits
        Rectangle {
            anchors.centerIn: parent
            width: Math.min(parent.width - 48, 280)
            height: progressColumn.implicitHeight + 32
            radius: 10
            color: "#303030"
            Column {
                id: progressColumn
                anchors.centerIn: parent
                width: parent.width - 32
                spacing: 12
                BusyIndicator {
                    running: page.screen.hudKey.length > 0
                    anchors.horizontalCenter: parent.horizontalCenter
                }
                Label {
                    width: parent.width
                    horizontalAlignment: Text.AlignHCenter
                    wrapMode: Text.Wrap
                    color: "white"
                    text: page.line(page.screen.hudKey, page.screen.hudArgument)
                }
            }
        }
    }

    ManualConnectSheet {
        id: manual
        screen: page.screen
    }
    HostChooser {
        screen: page.screen
    }
    HistorySheet {
        screen: page.screen
    }
    Connections {
        target: page.screen
        function onManualRequested() { manual.openWith(page.screen.lastHostAddress()) }
        function onDismissRequested() { manual.close() }
    }
}
