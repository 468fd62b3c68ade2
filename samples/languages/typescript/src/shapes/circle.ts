export class Circle {
  radius = 1;
}
