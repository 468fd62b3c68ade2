package com.acme.app

fun greet(): String = """import com.acme.Nothing"""
