import QtQuick
import QtQuick.Controls
import "../../live/qml"

// The one window: the main page with the pages pushed over it (options,
// help), and the live screen over all of them while a session runs. A
// pushed page closes itself with StackView.view.pop(). While a page covers
// the main page the connection flow sees the main screen as gone; back on
// the main page it appears again.
ApplicationWindow {
    id: window
    width: 360
    height: 720
    visible: true
    color: "black"
    title: "Oxelo"
    onWidthChanged: app.setViewSize(width, height)
    onHeightChanged: app.setViewSize(width, height)
    Component.onCompleted: app.setViewSize(width, height)

    StackView {
        id: stack
        objectName: "stack"
        anchors.fill: parent
        visible: !app.liveScreen
        initialItem: MainPage {
            onHelpRequested: stack.push(Qt.resolvedUrl("HelpPage.qml"))
            onOptionsRequested: stack.push(Qt.resolvedUrl("OptionsPage.qml"))
        }
        onDepthChanged: app.mainScreen.setCovered(depth > 1)
        Connections {
            target: app.mainScreen
            function onDismissRequested() { if (stack.depth > 1) stack.pop(null, StackView.Immediate) }
        }
    }
    Loader {
        anchors.fill: parent
        focus: true  // the live screen takes the keys (volume: a snapshot)
        active: !!app.liveScreen
        sourceComponent: LiveScreen { screen: app.liveScreen }
    }
}
