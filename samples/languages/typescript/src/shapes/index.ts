export { Circle } from './circle';
