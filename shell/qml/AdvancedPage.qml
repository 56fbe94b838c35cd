import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The capture and diagnostic switches: a tap turns a check-mark row over,
// or opens the sheet of a text row's values.
Page {
    id: page
    objectName: "advancedPage"
    title: qsTrId("O_ADVANCED")

    header: ToolBar {
        RowLayout {
            anchors.fill: parent
            ToolButton {
                objectName: "advancedBack"
                text: "‹"
                font.pixelSize: 24
                onClicked: page.StackView.view.pop()
            }
            Label {
                text: page.title
                font.bold: true
                Layout.fillWidth: true
            }
        }
    }

    ListView {
        anchors.fill: parent
        clip: true
        model: options.advancedRows
        delegate: ItemDelegate {
            objectName: "advanced_" + modelData.key
            width: ListView.view.width
            height: 48
            leftPadding: 16
            rightPadding: 16
            onClicked: {
                const values = options.tapAdvanced(index)
                if (values.length > 0)
                    sheet.ask(modelData.title, "", values, true,
                              i => options.chooseAdvanced(index, i))
            }
            contentItem: RowLayout {
                spacing: 8
                Label {
                    text: modelData.title
                    elide: Text.ElideRight
                    Layout.fillWidth: true
                }
                Label {
                    objectName: "detail"
                    visible: modelData.sheet
                    text: modelData.detail
                    opacity: 0.6
                }
                Label {
                    objectName: "check"
                    visible: modelData.checked
                    text: "✓"
                    font.bold: true
                    color: "#1C87CA"
                }
            }
        }
    }

    OptionsSheet { id: sheet }
}
