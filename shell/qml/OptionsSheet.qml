import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// A sheet to choose from: a title, an optional message, one button per
// entry and, unless it is an alert, Cancel. ask() opens it; `handler` gets
// the chosen entry's index.
Popup {
    id: sheet
    objectName: "optionsSheet"
    property string title
    property string message
    property var entries: []
    property bool cancellable: true
    property var handler: null

    function ask(title, message, entries, cancellable, handler) {
        sheet.title = title
        sheet.message = message
        sheet.entries = entries
        sheet.cancellable = cancellable
        sheet.handler = handler
        open()
    }

    parent: Overlay.overlay
    modal: true
    closePolicy: cancellable ? Popup.CloseOnEscape | Popup.CloseOnPressOutside : Popup.NoAutoClose
    width: Math.min(parent.width - 32, 420)
    height: Math.min(implicitHeight, parent.height - 32)
    x: (parent.width - width) / 2
    y: (parent.height - height) / 2
    padding: 8

    contentItem: ColumnLayout {
        spacing: 4
        Label {
            text: sheet.title
            visible: text.length > 0
            font.bold: true
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.Wrap
            Layout.fillWidth: true
            Layout.margins: 8
        }
        Label {
            text: sheet.message
            visible: text.length > 0
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.Wrap
            Layout.fillWidth: true
            Layout.margins: 8
        }
        Flickable {
            clip: true
            contentHeight: entries.height
            implicitHeight: entries.height
            Layout.fillWidth: true
            Layout.fillHeight: true
            Column {
                id: entries
                width: parent.width
                Repeater {
                    model: sheet.entries
                    delegate: ItemDelegate {
                        objectName: "sheetEntry" + index
                        width: entries.width
                        height: 44
                        text: modelData
                        onClicked: {
                            const handler = sheet.handler
                            sheet.close()
                            if (handler)
                                handler(index)
                        }
                    }
                }
            }
        }
        Button {
            objectName: "sheetCancel"
            visible: sheet.cancellable
            text: qsTrId("A_CANCEL")
            flat: true
            Layout.fillWidth: true
            onClicked: sheet.close()
        }
    }
}
