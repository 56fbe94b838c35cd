import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The computers connected before, newest first, as an action sheet at the
// bottom of the page, above the add button: one button per computer, "clear
// all" in red, and cancel. Open while the screen has history choices.
Dialog {
    id: sheet
    objectName: "historySheet"
    property var screen
    property color destructive: "#ff3b30"
    title: qsTrId("M_CONNECT_TO")
    modal: true
    closePolicy: Popup.NoAutoClose
    parent: Overlay.overlay
    width: Math.min(parent ? parent.width - 16 : 320, 400)
    x: parent ? (parent.width - width) / 2 : 0
    y: parent ? parent.height - height - 56 : 0
    visible: screen.historyChoices.length > 0

    ColumnLayout {
        anchors.fill: parent
        spacing: 6
        Repeater {
            model: sheet.screen.historyChoices
            Button {
                objectName: "historyChoice" + index
                text: modelData
                Layout.fillWidth: true
                Layout.minimumHeight: 44
                onClicked: sheet.screen.chooseHistoryAt(index)
            }
        }
        Button {
            objectName: "historyClearAll"
            text: qsTrId("M_CLEAR_ALL")
            flat: true
            palette.buttonText: sheet.destructive
            Layout.fillWidth: true
            Layout.minimumHeight: 44
            onClicked: sheet.screen.clearHistory()
        }
        Button {
            objectName: "historyCancel"
            text: qsTrId("A_CANCEL")
            flat: true
            Layout.fillWidth: true
            Layout.minimumHeight: 44
            onClicked: sheet.screen.chooseHistoryAt(-1)
        }
    }
}
