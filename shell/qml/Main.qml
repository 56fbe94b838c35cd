import QtQuick
import QtQuick.Controls
import "../../live/qml"

// The one window: the main page with the pages pushed over it (options,
// help), and the live screen over all of them while a session runs. A
// pushed page closes itself with StackView.view.pop().
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
        // The options page is open: its closing may start a connection.
        property bool optionsOpen: false
        initialItem: MainPage {
            onHelpRequested: stack.push(Qt.resolvedUrl("HelpPage.qml"))
            onOptionsRequested: stack.optionsOpen = !!stack.push(Qt.resolvedUrl("OptionsPage.qml"))
        }
        onDepthChanged: {
            if (depth === 1 && optionsOpen) {
                optionsOpen = false
                app.mainScreen.optionsClosed()
            }
        }
    }
    Loader {
        anchors.fill: parent
        focus: true  // the live screen takes the keys (volume: a snapshot)
        active: !!app.liveScreen
        sourceComponent: LiveScreen { screen: app.liveScreen }
    }
}
