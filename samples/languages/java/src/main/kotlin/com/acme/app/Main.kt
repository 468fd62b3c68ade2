package com.acme.app

import com.acme.util.Strings
import com.acme.app.greet as hello
import kotlinx.coroutines.runBlocking

fun main() {
    println(Strings.join(hello()))
}
