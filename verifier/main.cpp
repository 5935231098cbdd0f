#include <QApplication>

#include "ORLA_II_Plus_Verifier.h"

int main(int argc, char* argv[])
{
    QApplication application(argc, argv);
    ORLA_II_Plus_Verifier window;
    window.show();
    return application.exec();
}
