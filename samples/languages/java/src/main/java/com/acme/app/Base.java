package com.acme.app;

public abstract class Base {
  protected int started;
}
