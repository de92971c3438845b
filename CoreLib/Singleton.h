// Singleton.h: the one instance of a library service, made and destroyed at its start-up step.
#pragma once

namespace zn {

template <typename T>
class Singleton {
public:
    // Makes the object if there is none; returns it (null when no memory could be had).
    static T* _SDMInit() {
        if (m_ptr == nullptr) {
            m_ptr = new T;
        }
        return m_ptr;
    }
    // Destroys the object if there is one; always true.
    static bool _SDMShutdown() {
        delete m_ptr;
        m_ptr = nullptr;
        return true;
    }
    // The object, with no test and no creation: valid between start-up and shutdown.
    static T* GetInstance() { return m_ptr; }

private:
    static T* m_ptr;
};

template <typename T>
T* Singleton<T>::m_ptr = nullptr;

}  // namespace zn
