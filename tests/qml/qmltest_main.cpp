// Qt Quick Test runner for the cards' components: each tst_<Name>.qml is one CTest
// test (tests/CMakeLists.txt), run with `-input` inside a headless desktop.
#include <QQmlEngine>
#include <QQmlExtensionPlugin>
#include <QtQuickTest>

Q_IMPORT_QML_PLUGIN(Zorvane_UiPlugin)

class Setup : public QObject {
  Q_OBJECT

 public Q_SLOTS:
  // The module's qmldir sits at the root of the resources, under its URI.
  void qmlEngineAvailable(QQmlEngine* engine) { engine->addImportPath("qrc:/"); }
};

QUICK_TEST_MAIN_WITH_SETUP(zorvane_qmltest, Setup)

#include "qmltest_main.moc"
