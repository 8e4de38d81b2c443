#include "Phone/Discovery.h"
#include "Phone/PhoneProgram.h"

int main(int count, char** arguments) {
    using namespace orvel::phone;
    Console console = Console::ofProcess();
    return PhoneProgram::run({arguments + 1, arguments + count}, console,
                             [] { return discoverAgents(); });
}
