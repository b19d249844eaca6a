// Prints the texts that the default microphone hears, for ten seconds or as many as the first
// argument says.
#include "sdk/MainQueue.hpp"
#include "sdk/SorvelUBM.hpp"

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <thread>

int main(int argc, char** argv) {
    const int seconds = argc > 1 ? std::atoi(argv[1]) : 10;
    SorvelUBM listener("acme");
    listener.setCallBack([](const std::string& ubm) { std::cout << ubm << std::endl; }); // on the main queue
    listener.startListening();
    if (listener.status() != 1) std::cout << "no microphone; see sorvel devices" << std::endl;

    // An application would give its main thread to MainQueue::main().run(), or wait
    // on the queue's descriptor.
    std::thread clock([seconds] {
        std::this_thread::sleep_for(std::chrono::seconds(seconds));
        MainQueue::main().stop();
    });
    MainQueue::main().run();
    clock.join();
    listener.stopListening();
}
