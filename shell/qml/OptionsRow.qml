import QtQuick
import QtQuick.Controls
import QtQuick.Layouts

// One row of the options page, as `options.rows` gives it: the group's
// header above the first row of a group, the title, and the shown value or
// a switch. A hidden row takes no height. The page handles the taps.
Column {
    id: row
    property var entry
    signal tapped()
    signal held()

    objectName: "row_" + entry.name
    visible: !entry.hidden
    width: parent ? parent.width : 0

    Label {
        visible: !!row.entry.header
        height: row.entry.header || 0
        width: row.width
        leftPadding: 16
        verticalAlignment: Text.AlignBottom
        bottomPadding: 4
        text: row.entry.headerTitle || ""
        font.capitalization: Font.AllUppercase
        font.pixelSize: 13
        opacity: 0.6
    }
    ItemDelegate {
        objectName: "cell_" + row.entry.name
        width: row.width
        height: 48
        leftPadding: 16
        rightPadding: 16
        onClicked: {
            if (row.entry.kind !== "toggle") {
                row.tapped()
                return
            }
            toggle.toggle()
            options.setSwitch(row.entry.row, toggle.checked)
        }
        onPressAndHold: row.held()
        contentItem: RowLayout {
            spacing: 8
            Label {
                objectName: "title"
                text: row.entry.title
                elide: Text.ElideRight
                Layout.fillWidth: true
            }
            Label {
                objectName: "value"
                visible: row.entry.kind === "sheet"
                text: row.entry.value
                opacity: 0.6
                elide: Text.ElideLeft
                Layout.maximumWidth: row.width * 0.5
            }
            Switch {
                id: toggle
                objectName: "switch"
                visible: row.entry.kind === "toggle"
                checked: row.entry.on
                onToggled: options.setSwitch(row.entry.row, checked)
            }
        }
    }
}
