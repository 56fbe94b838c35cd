import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The manual connection: the computer's address and which Oxelo on it
// (1 to 16). OK hands both to the connection flow, which makes the port.
Dialog {
    id: sheet
    objectName: "manualSheet"
    property var screen
    title: "Oxelo"
    modal: true
    anchors.centerIn: Overlay.overlay
    width: Math.min(parent ? parent.width - 32 : 320, 400)

    function openWith(address) {
        addressField.text = address
        instanceField.text = "1"
        open()
        addressField.forceActiveFocus()
    }
    onAccepted: screen.connectManually(addressField.text, instanceField.text)

    ColumnLayout {
        anchors.fill: parent
        spacing: 10
        Label {
            text: qsTrId("M_INPUT_IP")
            wrapMode: Text.Wrap
            Layout.fillWidth: true
        }
        RowLayout {
            Label { text: "IP: "; color: "grey"; Layout.preferredWidth: 64 }
            TextField {
                id: addressField
                objectName: "manualAddress"
                placeholderText: qsTrId("M_HOST_ADDRESS")
                inputMethodHints: Qt.ImhPreferNumbers | Qt.ImhNoAutoUppercase
                Layout.fillWidth: true
                onAccepted: if (text.length > 0) sheet.accept()
            }
        }
        RowLayout {
            Label { text: "Oxelo #"; color: "grey"; Layout.preferredWidth: 64 }
            TextField {
                id: instanceField
                objectName: "manualInstance"
                placeholderText: qsTrId("M_INSTANCE")
                inputMethodHints: Qt.ImhDigitsOnly
                validator: IntValidator { bottom: 1; top: 16 }
                Layout.fillWidth: true
            }
        }
    }
    footer: DialogButtonBox {
        Button {
            objectName: "manualCancel"
            text: qsTrId("A_CANCEL")
            DialogButtonBox.buttonRole: DialogButtonBox.RejectRole
        }
        Button {
            objectName: "manualOk"
            text: qsTrId("A_OK")
            enabled: addressField.text.length > 0
            DialogButtonBox.buttonRole: DialogButtonBox.AcceptRole
        }
    }
}
