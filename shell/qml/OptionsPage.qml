import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The options: every row as `options` gives it, in its groups. A row with
// values opens a sheet of them, a switch writes at once, an action row runs
// on a tap; a long press on the help row opens the advanced page. Every
// change is in the settings at once; the next live session reads it.
Page {
    id: page
    objectName: "optionsPage"
    title: qsTrId("O_OPTIONS")

    Component.onCompleted: options.load()

    header: ToolBar {
        RowLayout {
            anchors.fill: parent
            Label {
                text: page.title
                font.bold: true
                leftPadding: 16
                Layout.fillWidth: true
            }
            ToolButton {
                objectName: "optionsDone"
                text: qsTrId("O_DONE")
                onClicked: options.done()
            }
        }
    }

    Connections {
        target: options
        function onDismissRequested() { page.StackView.view.pop() }
        function onAdvancedRequested() {
            page.StackView.view.push(Qt.resolvedUrl("AdvancedPage.qml"))
        }
        function onAlertRequested(title, message, buttons) {
            sheet.ask(title, message, buttons, false, i => options.answerAlert(i))
        }
        function onNotice(text) { notice.show(text, 3000) }
    }

    Flickable {
        anchors.fill: parent
        contentHeight: rows.height
        clip: true
        ScrollBar.vertical: ScrollBar {}

        Column {
            id: rows
            width: parent.width

            Repeater {
                model: options.rows
                delegate: OptionsRow {
                    entry: modelData
                    onTapped: {
                        if (entry.kind === "sheet")
                            sheet.ask(entry.title, "", options.choices(entry.row), true,
                                      i => options.select(entry.row, i))
                        else
                            options.activate(entry.row)
                    }
                    onHeld: options.longPress(entry.row)
                }
            }
            Label {
                objectName: "optionsFooter"
                width: parent.width
                height: 64
                topPadding: 5
                leftPadding: 16
                rightPadding: 16
                text: options.footer
                horizontalAlignment: Text.AlignHCenter
                wrapMode: Text.Wrap
                fontSizeMode: Text.Fit
                font.pixelSize: 12
                opacity: 0.6
            }
        }
    }

    OptionsSheet { id: sheet }
    ToolTip { id: notice }
}
