#pragma once

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QtTest>

/// As QTEST_GUILESS_MAIN, with the trace silent unless a TraceCapture listens.
#define BP_TEST_MAIN(TestClass)                                                                                        \
    int main(int argc, char *argv[])                                                                                   \
    {                                                                                                                  \
        QCoreApplication application(argc, argv);                                                                      \
        QLoggingCategory::setFilterRules(QStringLiteral("tavrix.console=false"));                                      \
        TestClass test;                                                                                                \
        QTEST_SET_MAIN_SOURCE_PATH                                                                                     \
        return QTest::qExec(&test, argc, argv);                                                                        \
    }
