import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// The help: the built-in page as rich text, its title and a close button.
// Its links open in the system's browser.
Page {
    id: page
    objectName: "helpPage"
    title: options.helpTitle

    header: ToolBar {
        RowLayout {
            anchors.fill: parent
            Label {
                objectName: "helpTitle"
                text: page.title
                font.bold: true
                leftPadding: 16
                Layout.fillWidth: true
            }
            ToolButton {
                objectName: "helpClose"
                text: "✕"
                font.pixelSize: 20
                onClicked: page.StackView.view.pop()
            }
        }
    }

    Flickable {
        anchors.fill: parent
        contentHeight: body.height
        clip: true
        ScrollBar.vertical: ScrollBar {}

        Text {
            id: body
            objectName: "helpText"
            width: parent.width
            textFormat: Text.RichText
            wrapMode: Text.Wrap
            text: options.helpPage
            onLinkActivated: link => options.openLink(link)
            HoverHandler {
                cursorShape: body.hoveredLink ? Qt.PointingHandCursor : Qt.ArrowCursor
            }
        }
    }
}
