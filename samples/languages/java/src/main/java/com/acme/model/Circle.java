package com.acme.model;

import com.acme.model.Shape;

public class Circle implements Shape {
  char open = '{';
}
