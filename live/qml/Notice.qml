import QtQuick

// An alert (title, message, buttons) or a toast of the live view. Texts that
// are keys are looked up by id; a tap on a button tells the view which.
Rectangle {
    id: notice
    property var screen
    readonly property var content: screen.notice
    function text(value) { return content.keys ? qsTrId(value) : value }

    visible: content.message !== undefined
    anchors.centerIn: parent
    width: Math.min(parent.width - 40, 320)
    height: column.implicitHeight + 32
    radius: 8
    color: "#f0303030"

    Column {
        id: column
        anchors.centerIn: parent
        width: parent.width - 32
        spacing: 12
        Text {
            visible: !!notice.content.title
            text: notice.content.title || ""
            color: notice.content.hasTitleColour ? notice.content.titleColour : "white"
            font.bold: true
            width: parent.width
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.Wrap
        }
        Text {
            text: notice.content.message ? notice.text(notice.content.message) : ""
            color: "white"
            width: parent.width
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.Wrap
        }
        Row {
            anchors.horizontalCenter: parent.horizontalCenter
            spacing: 24
            Repeater {
                model: notice.content.buttons || []
                Text {
                    text: qsTrId(modelData)
                    color: "#2ca7ea"
                    font.bold: true
                    padding: 8
                    TapHandler { onTapped: notice.screen.noticeButton(index) }
                }
            }
        }
    }
    TapHandler {
        enabled: !!notice.content.toast
        onTapped: notice.screen.noticeButton(-1)
    }
    Timer {
        running: !!notice.content.toast
        interval: notice.content.milliseconds || 2000
        onTriggered: notice.screen.noticeButton(-1)
    }
}
