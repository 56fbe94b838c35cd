import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// Several computers answered: one button per computer, in the order they
// were found, and cancel. Open while the screen has choices.
Dialog {
    id: chooser
    objectName: "hostChooser"
    property var screen
    title: qsTrId("M_CONNECT_TO")
    modal: true
    closePolicy: Popup.NoAutoClose
    anchors.centerIn: Overlay.overlay
    width: Math.min(parent ? parent.width - 32 : 320, 400)
    visible: screen.hostChoices.length > 0

    ColumnLayout {
        anchors.fill: parent
        spacing: 6
        Repeater {
            model: chooser.screen.hostChoices
            Button {
                objectName: "hostChoice" + index
                text: modelData
                Layout.fillWidth: true
                Layout.minimumHeight: 44
                onClicked: chooser.screen.chooseHostAt(index)
            }
        }
        Button {
            objectName: "hostChoiceCancel"
            text: qsTrId("A_CANCEL")
            flat: true
            Layout.fillWidth: true
            Layout.minimumHeight: 44
            onClicked: chooser.screen.chooseHostAt(-1)
        }
    }
}
