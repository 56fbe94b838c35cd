import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The minimal main page: a host address, an instance, connect, and the state
// line of the connection flow.
Page {
    property var screen: app.mainScreen

    ColumnLayout {
        anchors.centerIn: parent
        width: Math.min(parent.width - 32, 420)
        spacing: 12

        Label {
            text: "Oxelo"
            font.pixelSize: 28
            Layout.alignment: Qt.AlignHCenter
        }
        TextField {
            id: address
            objectName: "hostAddress"
            placeholderText: qsTrId("M_HOST_ADDRESS")
            inputMethodHints: Qt.ImhPreferNumbers
            Layout.fillWidth: true
            onAccepted: app.connectTo(address.text, instance.text)
        }
        TextField {
            id: instance
            text: "1"
            placeholderText: qsTrId("M_INSTANCE")
            inputMethodHints: Qt.ImhDigitsOnly
            Layout.fillWidth: true
        }
        Button {
            objectName: "connectButton"
            text: qsTrId("M_CONNECT")
            enabled: address.text.length > 0
            Layout.fillWidth: true
            Layout.minimumHeight: 44
            onClicked: app.connectTo(address.text, instance.text)
        }
        Label {
            text: screen.stateText
            color: screen.stateIsError ? "#e04040" : palette.text
            wrapMode: Text.Wrap
            Layout.fillWidth: true
        }
        BusyIndicator {
            running: screen.discovering
            Layout.alignment: Qt.AlignHCenter
        }
    }
}
