use crate::shapes::circle::{Circle};
use self::inner::Corner;

pub struct Square;
