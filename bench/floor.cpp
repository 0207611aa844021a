// The floor for the check's start-up: a program that links only QtCore and
// prints one line, built with the same compiler and flags as limitra.
#include <QTextStream>

int main()
{
    QTextStream(stdout) << "floor\n";
    return 0;
}
