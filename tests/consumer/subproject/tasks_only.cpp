#include <Task.h>

// Without Qt Network, and without a find_package() for what the library itself needs.
int main()
{
    orv::Task task;
    task.exec();
    return task.isFinished() && !task.hasError() ? 0 : 1;
}
